// What all promises share whatever their types: settling once, waiting, cancelling, and callbacks on the completion
// queue. Applications use Promise and PromiseSource, which are typed skins over this.
#pragma once

#include <atomic>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi::Foundation {
class CompletionQueue;
}

namespace HalvernApi::Promissum {

// What a promise asks to end when it is cancelled. Any thread; does nothing once the work has ended.
class HALVERNAPI_EXPORT Cancellable {
 public:
  virtual ~Cancellable();
  virtual void cancel() = 0;
};

// Passes a cancellation on to work that is only known later, and may change.
class HALVERNAPI_EXPORT CancelRelay final : public Cancellable {
 public:
  void cancel() override;
  void follow(std::weak_ptr<Cancellable> work);  // cancels it at once when `cancel` came before

 private:
  std::mutex mutex_;
  std::weak_ptr<Cancellable> work_;
  bool cancelled_ = false;
};

class HALVERNAPI_EXPORT PromiseCore : public boost::intrusive_ref_counter<PromiseCore, boost::thread_safe_counter> {
 public:
  using Queue = std::shared_ptr<Foundation::CompletionQueue>;
  using Deadline = std::optional<std::chrono::steady_clock::time_point>;

  class HALVERNAPI_EXPORT Callback {
   public:
    virtual ~Callback();
    // `last`: nobody else can come to see the result any more, so it may be moved from.
    virtual void run(PromiseCore& settled, bool last) noexcept = 0;

   private:
    friend class PromiseCore;
    std::unique_ptr<Callback> next_;
  };

  // A null queue means the one that all promises without a session share.
  explicit PromiseCore(Queue queue, std::weak_ptr<Cancellable> cancellable = {});
  virtual ~PromiseCore();

  const Queue& queue() const { return queue_; }
  bool settled() const { return settled_; }

  // Settling takes two steps: the first caller of `claim` stores the result, then publishes it.
  bool claim() { return !claimed_.exchange(true); }
  // Runs the callbacks: inside the call when it is made in a task of the promise's own queue and `inTask` is set, which
  // a continuation or the delivery of an answer may ask for; as a task of their own otherwise. The caller holds a
  // reference.
  void publish(bool inTask);

  // Runs `callback` on the queue once the promise has settled, after those attached before it.
  void attach(std::unique_ptr<Callback> callback);

  // Until settled; false at the deadline. Inside a handler it runs the other tasks of that handler's queue meanwhile.
  bool wait(Deadline deadline) const;

  void cancel() const;
  const std::weak_ptr<Cancellable>& cancellable() const { return cancellable_; }

  // A promise source that is dropped unsettled is a programming error.
  void addSource();
  void removeSource();

 private:
  void postCallbacks();
  void runCallbacks(std::unique_ptr<Callback> callbacks);

  const Queue queue_;
  const std::weak_ptr<Cancellable> cancellable_;
  mutable std::mutex mutex_;
  mutable std::condition_variable settledChanged_;
  std::unique_ptr<Callback> first_;
  Callback* last_ = nullptr;
  std::atomic<int> sources_ = 0;
  std::atomic<bool> claimed_ = false;
  std::atomic<bool> settled_ = false;  // set under the mutex
  bool running_ = false;               // a task that runs the callbacks is under way
};

}  // namespace HalvernApi::Promissum
