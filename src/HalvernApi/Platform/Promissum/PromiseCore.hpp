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
// A promise is posted from the moment at which somebody has to put it into its queue until the queue has run it. Only
// the task of a posted promise runs callbacks, so they run one at a time and in order. Callbacks that are attached
// before the promise settles, or while it is posted, are run by that task.
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
  // Has a posted promise run: as the next task when called inside a task of its own queue.
  void post();
  bool run() noexcept override;
  bool runWithoutHandlers() noexcept override;
  bool claimPosting() override;

  // Until settled; false when that takes longer than `timeout`, which is no limit from a century on. Inside a handler
  // it runs the other tasks of that handler's queue meanwhile.
  bool wait(std::chrono::milliseconds timeout);

  void cancel() const;
  const std::weak_ptr<Cancellable>& cancellable() const { return cancellable_; }

  // A promise source that is dropped unsettled is a programming error.
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
  std::mutex mutex_;
  std::condition_variable settledChanged_;     // with mutex_
  std::vector<Queue> waiting_;                 // under mutex_; one entry for each `wait` inside a task of the queue
  Callbacks callbacks_;                        // under mutex_
  std::atomic<State> state_ = State::pending;  // beyond `claimed` written under mutex_
  std::atomic<int> sources_ = 0;
};

}  // namespace HalvernApi::Promissum
