// The part of a promise that does not depend on its types: settling once, waiting, cancelling, and callbacks on the
// completion queue. Applications use Promise and PromiseSource, which add the types. Any thread.
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

// Work that ends when a promise is cancelled. Any thread.
class HALVERNAPI_EXPORT Cancellable {
 public:
  virtual ~Cancellable();

  // Cancels the work and returns null, or returns other work to cancel instead. Does nothing if the work has ended.
  virtual std::shared_ptr<Cancellable> cancelOrDelegate() = 0;
  // Cancels `work`, or the work that it refers to, through a chain of any length. `work` may be null.
  static void cancel(std::shared_ptr<Cancellable> work);
};

// Passes a cancellation on to work that becomes known later and may change. Any thread.
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
// A posted promise is in its queue as a task, or the caller of the function that posted it must put it there. Only that
// task runs callbacks, so they run one at a time and in order. While one of its handlers waits for another promise,
// only its continuations run.
class HALVERNAPI_EXPORT PromiseCore : public Foundation::Task {
 public:
  using Queue = std::shared_ptr<Foundation::CompletionQueue>;

  // A handler belongs to the application and is not started once the process exits. A continuation settles another
  // promise.
  enum class Kind { handler, continuation };

  class HALVERNAPI_EXPORT Callback {
   public:
    explicit Callback(Kind itsKind) : kind(itsKind) {}
    virtual ~Callback();
    virtual void run(PromiseCore& settled) noexcept = 0;

    std::unique_ptr<Callback> next;  // for the list that contains the callback
    const Kind kind;
  };

  // A null queue means the one that all promises without a session share.
  explicit PromiseCore(Queue queue, std::weak_ptr<Cancellable> cancellable = {});
  ~PromiseCore() override;

  const Queue& queue() const override { return queue_; }
  bool settled() const { return state_ >= State::settled; }

  // Runs `callback` on the queue once the promise has settled, after those attached before it.
  void attach(std::unique_ptr<Callback> callback);
  // Puts a posted promise into its queue. Inside a task of that queue, it becomes the next task.
  void post();
  [[nodiscard]] bool run() noexcept override;
  [[nodiscard]] bool runWithoutHandlers() noexcept override;
  [[nodiscard]] bool claimPosting() override;

  // Waits until the promise has settled. Returns false if that takes longer than `timeout`. A century or more means no
  // limit. Inside a handler, other tasks of its queue run during the wait.
  bool wait(std::chrono::milliseconds timeout);

  void cancel() const;
  const std::weak_ptr<Cancellable>& cancellable() const { return cancellable_; }

  // Counts the sources. Destroying the last one before the promise settles is a programming error.
  void addSource() { ++sources_; }
  void removeSource();

 protected:
  // Settling takes two steps. The first caller of `claim` gets true and stores the result. Then it calls `publish`,
  // which wakes waiting threads and returns whether the promise is posted now.
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
  std::vector<Queue> waiting_ HALVERNAPI_GUARDED_BY(mutex_);  // one entry for each `wait` inside a task of the queue
  Callbacks callbacks_ HALVERNAPI_GUARDED_BY(mutex_);
  std::atomic<State> state_ = State::pending;  // changed under mutex_, except by `claim`
  std::atomic<int> sources_ = 0;
};

}  // namespace HalvernApi::Promissum
