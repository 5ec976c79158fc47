// The part of a promise that does not depend on the types of its value and error: settling once, waiting, cancelling,
// and callbacks on the completion queue. Any thread.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "HalvernApi/Platform/Foundation/Mutex.hpp"
#include "HalvernApi/Platform/Foundation/Task.hpp"

namespace HalvernApi::Foundation {
class CompletionQueue;
}

namespace HalvernApi::Promissum {

// Work that can be cancelled through a promise, such as an exchange. Any thread.
class HALVERNAPI_EXPORT Cancellable {
 public:
  virtual ~Cancellable();

  // Cancels the work and returns null, or returns other work to cancel instead. Does nothing if the work has ended.
  virtual std::shared_ptr<Cancellable> cancelOrDelegate() = 0;
  // Calls `cancelOrDelegate` of `work`, then of the work that this returns, until it returns null. `work` may be null.
  static void cancel(std::shared_ptr<Cancellable> work);
};

// Passes a cancellation on to other work, which can be set later and replaced. Any thread.
class HALVERNAPI_EXPORT CancelRelay final : public Cancellable {
 public:
  std::shared_ptr<Cancellable> cancelOrDelegate() override;
  void follow(std::weak_ptr<Cancellable> work);  // cancels `work` immediately if the relay has been cancelled

 private:
  Foundation::Mutex mutex_;
  std::weak_ptr<Cancellable> work_ HALVERNAPI_GUARDED_BY(mutex_);
  bool cancelled_ HALVERNAPI_GUARDED_BY(mutex_) = false;
};

// The states of a promise:
//
//               claim           publish
//     pending ---------> claimed ---------> settled <-----------.
//                           |                  |                |
//                           |                  | attach,        | run: no callback is left,
//                           |                  v claimPosting   | or only handlers that may not run
//                           '--------------> posted ------------'
//                 publish, with callbacks
//
// A promise in the state `posted` is in its queue as a task, or the caller of the function that set the state must put
// it there. Only this task runs callbacks, so they run one at a time and in order. While a handler waits for another
// promise, later continuations of the handler's promise run, but no later handlers.
class HALVERNAPI_EXPORT PromiseCore : public Foundation::Task {
 public:
  using Queue = std::shared_ptr<Foundation::CompletionQueue>;

  // A handler belongs to the application and is not started after process exit has begun. A continuation settles
  // another promise and runs even then.
  enum class Kind { handler, continuation };

  class HALVERNAPI_EXPORT Callback {
   public:
    explicit Callback(Kind itsKind) : kind(itsKind) {}
    virtual ~Callback();
    virtual void run(PromiseCore& settled) noexcept = 0;

    std::unique_ptr<Callback> next;  // used by the list that contains the callback
    const Kind kind;
  };

  // If `queue` is null, uses the queue that all promises without a session share.
  explicit PromiseCore(Queue queue, std::weak_ptr<Cancellable> cancellable = {});
  ~PromiseCore() override;

  const Queue& queue() const override { return queue_; }
  bool settled() const { return state_ >= State::settled; }

  // Runs `callback` on the queue when the promise has settled, after earlier callbacks.
  void attach(std::unique_ptr<Callback> callback);
  // Puts this promise, which must be `posted`, into its queue. Inside a task of that queue, it becomes the next task.
  void post();
  [[nodiscard]] bool run() noexcept override;
  [[nodiscard]] bool runWithoutHandlers() noexcept override;
  [[nodiscard]] bool claimPosting() override;

  // Waits until the promise has settled. Returns false if that takes longer than `timeout`. 100 years or more mean no
  // limit. Inside a task, other tasks of the same queue run during the wait.
  bool wait(std::chrono::milliseconds timeout);

  void cancel() const;
  const std::weak_ptr<Cancellable>& cancellable() const { return cancellable_; }

  // Counts the PromiseSource objects. Removing the last one before the promise has settled is a programming error.
  void addSource() { ++sources_; }
  void removeSource();

 protected:
  // Settling takes two steps. The first caller of `claim` receives true and stores the result. Then it calls `publish`,
  // which wakes waiting threads and returns whether the state is `posted` now.
  [[nodiscard]] bool claim();
  [[nodiscard]] bool publish();

 private:
  using Callbacks = Foundation::Fifo<std::unique_ptr<Callback>>;
  enum class State { pending, claimed, settled, posted };

  bool runContinuations(State after) noexcept;

  const Queue queue_;
  const std::weak_ptr<Cancellable> cancellable_;
  Foundation::Mutex mutex_;
  Foundation::Condition settledChanged_;
  std::vector<Queue> waiting_ HALVERNAPI_GUARDED_BY(mutex_);  // one entry for each `wait` in a task: the task's queue
  Callbacks callbacks_ HALVERNAPI_GUARDED_BY(mutex_);
  std::atomic<State> state_ = State::pending;  // changed under mutex_, except by `claim`
  std::atomic<int> sources_ = 0;
};

}  // namespace HalvernApi::Promissum
