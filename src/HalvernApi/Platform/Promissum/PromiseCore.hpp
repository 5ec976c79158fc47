// What all promises share whatever their types: settling once, waiting, cancelling, and callbacks on the completion
// queue. Applications use Promise and PromiseSource, which are typed skins over this. Any thread.
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

// What a promise asks to end when it is cancelled. Any thread.
class HALVERNAPI_EXPORT Cancellable {
 public:
  virtual ~Cancellable();

  // Ends the work, which does nothing once it has ended, or names what to cancel in its place.
  virtual std::shared_ptr<Cancellable> cancelOrDelegate() = 0;
  // Cancels `work` or whatever stands in its place, however long the chain; null is allowed.
  static void cancel(std::shared_ptr<Cancellable> work);
};

// Passes a cancellation on to work that is only known later, and may change. Any thread.
class HALVERNAPI_EXPORT CancelRelay final : public Cancellable {
 public:
  std::shared_ptr<Cancellable> cancelOrDelegate() override;
  void follow(std::weak_ptr<Cancellable> work);  // cancels it at once when the relay was cancelled before

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
//                           |                  | claimPosting   | run: no callback is left,
//                           |                  v                | or only handlers that may not run
//                           '--------------> posted ------------'
//                 publish, with callbacks
//
// A posted promise is in its queue, as a task, or the caller of the function that posted it has to put it there. Only
// that task runs callbacks, so they run one at a time and in order.
class HALVERNAPI_EXPORT PromiseCore : public Foundation::Task {
 public:
  using Queue = std::shared_ptr<Foundation::CompletionQueue>;

  // A handler is the application's and does not begin once the process exits; a continuation settles another promise.
  enum class Kind { handler, continuation };

  class HALVERNAPI_EXPORT Callback {
   public:
    explicit Callback(Kind itsKind) : kind(itsKind) {}
    virtual ~Callback();
    virtual void run(PromiseCore& settled) noexcept = 0;

    std::unique_ptr<Callback> next;  // for the list that the callback stands in
    const Kind kind;
  };

  // A null queue means the one that all promises without a session share.
  explicit PromiseCore(Queue queue, std::weak_ptr<Cancellable> cancellable = {});
  ~PromiseCore() override;

  const Queue& queue() const { return queue_; }
  bool settled() const { return state_ >= State::settled; }

  // Runs `callback` on the queue once the promise has settled, after those attached before it.
  void attach(std::unique_ptr<Callback> callback);
  // Puts a posted promise into its queue; as the next task when called inside a task of that queue.
  void post();
  [[nodiscard]] bool run() noexcept override;
  [[nodiscard]] bool runWithoutHandlers() noexcept override;
  [[nodiscard]] bool claimPosting() override;

  // Waits until the promise has settled; false if that takes longer than `timeout`. A century or more is no limit.
  // Inside a handler, other tasks of its queue run meanwhile.
  bool wait(std::chrono::milliseconds timeout);

  void cancel() const;
  const std::weak_ptr<Cancellable>& cancellable() const { return cancellable_; }

  // Counts the sources. Destroying the last one before the promise settles is a programming error.
  void addSource() { ++sources_; }
  void removeSource();

 protected:
  // Settling takes two steps: the first caller of `claim` gets true and stores the result, then it calls `publish`,
  // which wakes those who wait. `publish` returns whether the promise is posted now.
  [[nodiscard]] bool claim();
  [[nodiscard]] bool publish();

 private:
  using Callbacks = Foundation::Fifo<std::unique_ptr<Callback>>;
  enum class State { pending, claimed, settled, posted };

  bool runCallbacks(bool (*mayRun)(Kind)) noexcept;

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
