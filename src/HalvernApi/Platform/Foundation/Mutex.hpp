// A mutex, a lock and a condition variable. Clang checks that data guarded by a mutex is used only while the mutex is
// locked (-Wthread-safety). Any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>

// \cond
#ifdef __clang__
#define HALVERNAPI_CHECKED_BY_CLANG(attribute) __attribute__((attribute))
#else
#define HALVERNAPI_CHECKED_BY_CLANG(attribute)
#endif
#define HALVERNAPI_GUARDED_BY(mutex) HALVERNAPI_CHECKED_BY_CLANG(guarded_by(mutex))
#define HALVERNAPI_REQUIRES(mutex) HALVERNAPI_CHECKED_BY_CLANG(requires_capability(mutex))
// Turns the check off for a function that returns with a mutex locked, and for the function that unlocks it.
#define HALVERNAPI_UNCHECKED HALVERNAPI_CHECKED_BY_CLANG(no_thread_safety_analysis)

namespace HalvernApi::Foundation {

// Absent means no limit.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

class HALVERNAPI_CHECKED_BY_CLANG(capability("mutex")) Mutex {
 public:
  void lock() HALVERNAPI_CHECKED_BY_CLANG(acquire_capability()) { mutex_.lock(); }
  void unlock() HALVERNAPI_CHECKED_BY_CLANG(release_capability()) { mutex_.unlock(); }

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

// Locks the mutex from construction to destruction, except between calls of `unlock` and `lock`.
class HALVERNAPI_CHECKED_BY_CLANG(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) HALVERNAPI_CHECKED_BY_CLANG(acquire_capability(mutex)) : lock_(mutex.mutex_) {}
  ~MutexLock() HALVERNAPI_CHECKED_BY_CLANG(release_capability()) {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void lock() HALVERNAPI_CHECKED_BY_CLANG(acquire_capability()) { lock_.lock(); }
  void unlock() HALVERNAPI_CHECKED_BY_CLANG(release_capability()) { lock_.unlock(); }

 private:
  friend class Condition;
  std::unique_lock<std::mutex> lock_;
};

class Condition {
 public:
  void notifyOne() { changed_.notify_one(); }
  void notifyAll() { changed_.notify_all(); }
  // Unlocks, waits for a notification and locks again. May also return without a notification. Returns false after
  // `deadline`.
  bool wait(MutexLock& lock, Deadline deadline = {}) {
    if (deadline) return changed_.wait_until(lock.lock_, *deadline) == std::cv_status::no_timeout;
    changed_.wait(lock.lock_);
    return true;
  }

 private:
  std::condition_variable changed_;
};

}  // namespace HalvernApi::Foundation
// \endcond
