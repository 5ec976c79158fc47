#include "HalvernApi/Platform/Foundation/Thread.hpp"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

namespace HalvernApi::Foundation {
namespace {

struct Process {
  std::mutex mutex;
  std::condition_variable left;
  std::atomic<bool> exiting = false;
  int inside = 0;
  std::vector<std::weak_ptr<ProcessExit::Stoppable>> stoppables;
  std::vector<std::shared_ptr<void>> kept;
  std::atomic<int> forks = 0;
};

// Never destroyed: threads look at it until the process is gone.
Process& process() {
  static Process& state = *[] {
    // A child must not inherit the mutex locked, and its parent's threads are not inside anything there.
    pthread_atfork([] { process().mutex.lock(); }, [] { process().mutex.unlock(); },
                   [] {
                     process().inside = 0;
                     ++process().forks;
                     process().mutex.unlock();
                   });
    return new Process;
  }();
  return state;
}

thread_local int insideHere = 0;

// Runs at exit, perhaps several times.
void beginExit() {
  Process& state = process();
  state.exiting = true;
  std::unique_lock lock(state.mutex);
  const auto stoppables = std::exchange(state.stoppables, {});
  lock.unlock();
  for (const auto& weak : stoppables)
    if (const auto stoppable = weak.lock()) stoppable->stop();
  lock.lock();
  // A completion handler may be what called exit; it is not waited for.
  state.left.wait_for(lock, std::chrono::seconds(1), [&] { return state.inside <= insideHere; });
}

}  // namespace

int forkCount() { return process().forks; }

Thread::~Thread() {
  if (!thread_.joinable()) return;
  if (thread_.get_id() == std::this_thread::get_id() || forkCount() != forkCount_ || ProcessExit::begun())
    thread_.detach();
  else
    thread_.join();
}

bool Thread::start(std::function<void()> run) {
  forkCount_ = forkCount();
  sigset_t blocked;
  sigset_t before;
  sigfillset(&blocked);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) sigdelset(&blocked, fault);
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  try {
    thread_ = std::thread(std::move(run));
  } catch (const std::system_error&) {
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread_.joinable();
}

bool ProcessExit::begun() { return process().exiting; }

bool ProcessExit::enter() {
  const std::lock_guard lock(process().mutex);
  if (process().exiting) return false;
  ++process().inside;
  ++insideHere;
  return true;
}

void ProcessExit::leave() {
  const std::lock_guard lock(process().mutex);
  --insideHere;
  --process().inside;
  process().left.notify_all();
}

void ProcessExit::keep(std::shared_ptr<void> object) {
  const std::lock_guard lock(process().mutex);
  process().kept.push_back(std::move(object));
}

void ProcessExit::stopAtExit(std::weak_ptr<Stoppable> stoppable) {
  const std::lock_guard lock(process().mutex);
  [[maybe_unused]] const int refused = std::atexit(beginExit);  // then calls are cancelled with their session
  std::erase_if(process().stoppables, [](const auto& weak) { return weak.expired(); });
  process().stoppables.push_back(std::move(stoppable));
}

}  // namespace HalvernApi::Foundation
