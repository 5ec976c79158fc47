// The queue on which callbacks run, one at a time and in order. Any thread. Not installed.
//
// Tasks wait in this queue. The application's queue, or a thread that this queue owns, only receives requests to run
// them. Therefore a handler that waits for a promise can run the tasks behind it, on every kind of queue.
#pragma once

#include <functional>
#include <memory>

#include "HalvernApi/Platform/Foundation/DispatchQueue.hpp"
#include "HalvernApi/Platform/Foundation/Fork.hpp"
#include "HalvernApi/Platform/Foundation/Mutex.hpp"
#include "HalvernApi/Platform/Foundation/ProcessExit.hpp"
#include "HalvernApi/Platform/Foundation/Task.hpp"
#include "HalvernApi/Platform/Foundation/Thread.hpp"

namespace HalvernApi::Foundation {

class CompletionQueue : public ProcessExit::Stoppable, public std::enable_shared_from_this<CompletionQueue> {
 public:
  // `executor` runs the tasks. If it is null, the queue starts its own thread.
  explicit CompletionQueue(std::shared_ptr<DispatchQueue> executor);
  ~CompletionQueue() override;

  // Returns the queue for `executor`. All callers with the same executor get the same queue, so a handler of one
  // session may wait for a call of another session. If `executor` is null, returns a new queue that starts its own
  // thread.
  static std::shared_ptr<CompletionQueue> on(const std::shared_ptr<DispatchQueue>& executor);
  // The queue of all promises without a session. In a forked child, returns a new queue.
  static const std::shared_ptr<CompletionQueue>& shared();
  // The queue of the task that the calling thread is running; null outside tasks.
  static CompletionQueue* current();

  // Starts the thread of a queue without executor, unless it is running. Returns false if no task can run: the system
  // cannot create a thread, or the queue has an executor and the process is exiting. May throw std::bad_alloc.
  bool prepare();

  // The tasks keep the queue alive until they have run. If the process is exiting, or if threads or memory run out,
  // this call settles the promises of the tasks itself. Their handlers run after a later call that succeeds; at exit,
  // they never run.
  void post(TaskList tasks);
  // May only be called inside a task of this queue. `task` runs before all tasks of `post`, in the order of the calls
  // of `postNext`.
  void postNext(Task::Pointer task);

  // May only be called inside a task of this queue. Runs other tasks until `done` returns true or `deadline` has
  // passed.
  void runUntil(const std::function<bool()>& done, Deadline deadline);
  // Makes a waiting `runUntil` call `done` again.
  void wake();

  // Called at exit. Settles the promises of waiting tasks, because the application's queue may never run these.
  void stop() override;

 private:
  struct State;
  struct Batch;
  bool requestBatch();
  void schedule();
  void runWithoutHandlers(TaskList tasks);

  const std::shared_ptr<DispatchQueue> executor_;
  const std::shared_ptr<State> state_;  // shared with the thread, because a task may release the queue's last reference
  const OriginalProcess origin_{};
  Thread thread_;  // started while the state's mutex is locked
};

}  // namespace HalvernApi::Foundation
