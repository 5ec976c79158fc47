#include "HalvernApi/Platform/Foundation/Thread.hpp"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

#include "HalvernApi/Platform/Foundation/Posix.hpp"

namespace HalvernApi::Foundation {
namespace {

struct Process {
  std::mutex mutex;
  std::condition_variable left;
  std::atomic<bool> exiting = false;
  std::atomic<int> inside = 0;
  std::vector<std::weak_ptr<ProcessExit::Stoppable>> stoppables;  // under mutex
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
  // A handler may be what called exit; it is not waited for.
  state.left.wait_for(lock, std::chrono::seconds(1), [&] { return state.inside <= insideHere; });
}

thread_local bool localsAreGone = false;

struct LocalsWatch {
  ~LocalsWatch() { localsAreGone = true; }
  void install() {}
};
thread_local LocalsWatch localsWatch;

bool onMainThread() {
#ifdef __linux__
  return ::gettid() == ::getpid();
#else
  return pthread_main_np() != 0;
#endif
}

}  // namespace

int forkCount() { return process().forks; }

Thread::~Thread() {
  if (!thread_.joinable()) return;
  if (isThis() || forkCount() != forkCount_ || ProcessExit::begun())
    thread_.detach();
  else
    thread_.join();
}

// Blocks the signals that come from outside meanwhile: the new thread inherits that.
bool Thread::start(std::function<void()> run) {
#ifndef _WIN32
  sigset_t blocked, before;
  sigfillset(&blocked);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) sigdelset(&blocked, fault);
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
#endif
  forkCount_ = forkCount();
  try {
    thread_ = std::thread(std::move(run));
  } catch (const std::exception&) {  // no thread to be had, or no memory
  }
#ifndef _WIN32
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
#endif
  return started();
}

bool ProcessExit::begun() { return process().exiting; }

bool ProcessExit::enter() {
  ++process().inside;
  ++insideHere;
  if (!process().exiting) return true;
  leave();
  return false;
}

void ProcessExit::leave() {
  --insideHere;
  --process().inside;
  if (!process().exiting) return;
  const std::lock_guard lock(process().mutex);
  process().left.notify_all();
}

void ProcessExit::stopAtExit(std::weak_ptr<Stoppable> stoppable) {
  localsWatch.install();
  [[maybe_unused]] static const int registered = std::atexit(beginExit);
  const std::lock_guard lock(process().mutex);
  std::erase_if(process().stoppables, [](const auto& weak) { return weak.expired(); });
  process().stoppables.push_back(std::move(stoppable));
}

void ProcessExit::noticeFromDestructor() {
  if (localsAreGone && onMainThread() && !begun()) beginExit();
}

}  // namespace HalvernApi::Foundation
