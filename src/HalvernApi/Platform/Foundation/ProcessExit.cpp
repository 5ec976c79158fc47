#include "HalvernApi/Platform/Foundation/ProcessExit.hpp"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>
#include <utility>
#include <vector>

#include "HalvernApi/Platform/Foundation/Mutex.hpp"
#include "HalvernApi/Platform/Foundation/Posix.hpp"

namespace HalvernApi::Foundation {
namespace {

struct Process {
  std::atomic<bool> exiting = false;
  std::atomic<int> inside = 0;
  Mutex mutex;
  Condition left;
  std::vector<std::weak_ptr<ProcessExit::Stoppable>> stoppables HALVERNAPI_GUARDED_BY(mutex);
};

Process& process();

// The mutex is locked during a fork, because otherwise the child could inherit it while another thread has locked it.
// The other threads do not exist in the child, so `inside` starts at 0 there.
void beforeFork() HALVERNAPI_UNCHECKED { process().mutex.lock(); }
void afterForkInParent() HALVERNAPI_UNCHECKED { process().mutex.unlock(); }
void afterForkInChild() HALVERNAPI_UNCHECKED {
  process().inside = 0;
  process().mutex.unlock();
}

// Never destroyed: threads use it until the process has ended.
Process& process() {
  static Process& state = *[] {
    auto made = std::make_unique<Process>();
    if (pthread_atfork(beforeFork, afterForkInParent, afterForkInChild) != 0) throw std::bad_alloc();
    return made.release();
  }();
  return state;
}

thread_local int insideHere = 0;

// Called at exit, possibly several times.
void beginExit() {
  Process& state = process();
  state.exiting = true;
  MutexLock lock(state.mutex);
  const auto stoppables = std::exchange(state.stoppables, {});
  lock.unlock();
  for (const auto& weak : stoppables)
    if (const auto stoppable = weak.lock()) stoppable->stop();
  lock.lock();
  // If a handler on this thread has called exit, `insideHere` excludes it from the wait.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  while (state.inside > insideHere && state.left.wait(lock, deadline)) {
  }
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
  const MutexLock lock(process().mutex);
  process().left.notifyAll();
}

bool ProcessExit::stopAtExit(std::weak_ptr<Stoppable> stoppable) {
  localsWatch.install();
  [[maybe_unused]] static const bool registered = [] {
    if (std::atexit(beginExit) != 0) throw std::bad_alloc();  // the next call tries again
    return true;
  }();
  const MutexLock lock(process().mutex);
  if (process().exiting) return false;
  std::erase_if(process().stoppables, [](const auto& weak) { return weak.expired(); });
  process().stoppables.push_back(std::move(stoppable));
  return true;
}

void ProcessExit::noticeFromDestructor() {
  if (localsAreGone && onMainThread() && !begun()) beginExit();
}

}  // namespace HalvernApi::Foundation
