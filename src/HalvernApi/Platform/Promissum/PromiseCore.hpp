// What all promises share whatever their types: settling once, waiting, cancelling, and callbacks on the completion
// queue. Applications use Promise and PromiseSource, which are typed skins over this. Any thread.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

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
  std::mutex mutex_;
  std::weak_ptr<Cancellable> work_;  // under mutex_
  bool cancelled_ = false;           // under mutex_
};

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
  bool settled() const { return settled_; }

  // Settling takes two steps: the first caller of `claim` stores the result, then publishes it, which wakes those who
  // wait. True when there are callbacks, which the caller then has to run, by posting this as a task.
  bool claim() { return !claimed_.exchange(true); }
  bool publish();
  // Has the callbacks run, as the next task when called inside a task of the promise's own queue.
  void postCallbacks();

  // Runs `callback` on the queue once the promise has settled, after those attached before it.
  void attach(std::unique_ptr<Callback> callback);
  bool run(bool handlers) noexcept override;
  bool isDue() override;

  // Until settled; false when that takes longer than `timeout`, which is no limit from a century on. Inside a handler
  // it runs the other tasks of that handler's queue meanwhile.
  bool wait(std::chrono::milliseconds timeout) const;

  void cancel() const;
  const std::weak_ptr<Cancellable>& cancellable() const { return cancellable_; }

  // A promise source that is dropped unsettled is a programming error.
  void addSource() { ++sources_; }
  void removeSource();

 private:
  using Callbacks = Foundation::Fifo<std::unique_ptr<Callback>>;

  const Queue queue_;
  const std::weak_ptr<Cancellable> cancellable_;
  mutable std::mutex mutex_;
  mutable std::condition_variable settledChanged_;  // with mutex_
  mutable std::vector<Queue> waiting_;  // under mutex_; one entry for each `wait` inside a task of the queue
  Callbacks callbacks_;                 // under mutex_
  bool posted_ = false;                 // under mutex_; this stands in a queue, or its callbacks are being run
  std::atomic<int> sources_ = 0;
  std::atomic<bool> claimed_ = false;
  std::atomic<bool> settled_ = false;  // written under mutex_
};

}  // namespace HalvernApi::Promissum
