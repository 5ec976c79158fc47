// The queue on which the callbacks of one session run, one at a time and in order. Any thread. Not installed.
//
// Tasks wait here, and the application's queue (or a thread of our own) is only asked to run them. So a
// handler that blocks on a promise can run the tasks behind it, whichever queue it runs on.
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
  // `executor` runs the tasks; null means a thread of the queue's own.
  explicit CompletionQueue(std::shared_ptr<DispatchQueue> executor);
  ~CompletionQueue() override;

  // A queue in front of `executor`, the same one for all who name the same executor, so that a handler of one session
  // may block on a call of another; a queue with a thread of its own for null.
  static std::shared_ptr<CompletionQueue> on(const std::shared_ptr<DispatchQueue>& executor);
  // The queue of promises that were made without a session; another one in the child of a fork.
  static const std::shared_ptr<CompletionQueue>& shared();
  // The queue whose task the calling thread is running; null outside tasks.
  static CompletionQueue* current();

  // Starts the queue's own thread, if it has none yet. False when the system has none to give.
  bool prepare();

  // The queue stays alive until its tasks have run. Where nothing can run them, because the process exits or the system
  // has no thread to give, promises are settled inside the call; handlers wait for a later call that finds a thread.
  void post(TaskList tasks);
  // Inside a task of this queue: `task` runs next, behind others posted in this way.
  void postNext(Task::Pointer task);

  // Inside a task of this queue: runs other tasks until `done` says so; false at the deadline.
  bool runUntil(const std::function<bool()>& done, Deadline deadline);
  // Makes a waiting `runUntil` call `done` again.
  void wake();

  // At exit: settles what the application's queue may never come for.
  void stop() override;

 private:
  struct State;
  void schedule();
  void runWithoutHandlers(TaskList tasks);

  const std::shared_ptr<DispatchQueue> executor_;
  const std::shared_ptr<State> state_;  // shared with the thread, for a task may drop the queue
  const OriginalProcess origin_{};
  Thread thread_;  // started under the state's mutex
};

}  // namespace HalvernApi::Foundation
