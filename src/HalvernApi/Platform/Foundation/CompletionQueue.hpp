// The queue on which callbacks run, one at a time and in order. Any thread. Not installed.
//
// Tasks wait in this queue. The application's queue (or a thread that this queue owns) is only asked to run them.
// Therefore a handler that blocks on a promise can run the tasks behind it, on every kind of queue.
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
  // `executor` runs the tasks. If it is null, the queue starts a thread of its own.
  explicit CompletionQueue(std::shared_ptr<DispatchQueue> executor);
  ~CompletionQueue() override;

  // Returns the queue for `executor`. All callers with the same executor get the same queue, so a handler of one
  // session may block on a call of another session. For null, returns a new queue that starts a thread of its own.
  static std::shared_ptr<CompletionQueue> on(const std::shared_ptr<DispatchQueue>& executor);
  // The queue of promises that have no session. A forked child gets a new one.
  static const std::shared_ptr<CompletionQueue>& shared();
  // The queue whose task the calling thread is running; null outside tasks.
  static CompletionQueue* current();

  // Starts the queue's own thread if it needs one and has none yet. Returns false if no task can run: the system cannot
  // create a thread, or the queue has an executor and the process is exiting.
  bool prepare();

  // The queue stays alive until its tasks have run. If nothing can run them, because the process is exiting or the
  // system cannot create a thread, this call settles their promises itself. Their handlers wait for a later call that
  // finds a thread; at exit, they never run.
  void post(TaskList tasks);
  // May only be called inside a task of this queue. `task` runs next, after other tasks that were posted in this way.
  void postNext(Task::Pointer task);

  // May only be called inside a task of this queue. Runs other tasks until `done` returns true. Returns false if
  // `deadline` passes first.
  bool runUntil(const std::function<bool()>& done, Deadline deadline);
  // Makes a waiting `runUntil` call `done` again.
  void wake();

  // Called at exit. Settles the promises whose tasks the application's queue may never run.
  void stop() override;

 private:
  struct State;
  struct Batch;
  bool requestBatch();
  void schedule();
  void runWithoutHandlers(TaskList tasks);

  const std::shared_ptr<DispatchQueue> executor_;
  const std::shared_ptr<State> state_;  // shared with the thread: a task may release the last reference to the queue
  const OriginalProcess origin_{};
  Thread thread_;  // started while the state's mutex is locked
};

}  // namespace HalvernApi::Foundation
