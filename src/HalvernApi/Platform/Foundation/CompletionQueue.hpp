// The queue on which the handlers of one session run, one at a time and in order. Not installed.
//
// Tasks wait here, and the application's queue (or a thread of our own) is only asked to come and run them. So a
// handler that blocks on a promise can run the tasks behind it, whichever queue it runs on.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "HalvernApi/Platform/Foundation/DispatchQueue.hpp"

namespace HalvernApi::Foundation {

class CompletionQueue : public std::enable_shared_from_this<CompletionQueue> {
 public:
  using Task = std::function<void()>;
  using Deadline = std::optional<std::chrono::steady_clock::time_point>;

  // `executor` runs the tasks; null means a thread of the queue's own, started by the first task.
  explicit CompletionQueue(std::shared_ptr<DispatchQueue> executor);

  // A queue in front of `executor`, the same one for all who name the same executor, so that a handler of one session
  // may block on a call of another; a queue with a thread of its own for null.
  static std::shared_ptr<CompletionQueue> on(const std::shared_ptr<DispatchQueue>& executor);
  // The queue of promises that were made without a session.
  static const std::shared_ptr<CompletionQueue>& shared();
  // The queue whose task the calling thread is running; null outside tasks.
  static CompletionQueue* current();

  // Any thread. The queue stays alive until its tasks have run.
  void post(Task task);
  void post(std::vector<Task> tasks);

  // Runs tasks on the calling thread until `done` says so after one of them; false at the deadline. Only inside a task
  // of this queue, or once process exit has begun.
  bool runUntil(const std::function<bool()>& done, Deadline deadline);

 private:
  void runScheduled();
  bool runNext();
  void schedule();

  const std::shared_ptr<DispatchQueue> executor_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<Task> incoming_;
  bool scheduled_ = false;
  std::deque<Task> running_;  // touched only by the thread that runs tasks
};

}  // namespace HalvernApi::Foundation
