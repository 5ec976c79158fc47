#include "HalvernApi/Platform/Promissum/PromiseCore.hpp"

#include <cassert>
#include <utility>

#include "HalvernApi/Platform/Foundation/CompletionQueue.hpp"
#include "HalvernApi/Platform/Foundation/Thread.hpp"

namespace HalvernApi::Promissum {

using Foundation::CompletionQueue;

Cancellable::~Cancellable() = default;
PromiseCore::Callback::~Callback() = default;

void CancelRelay::cancel() {
  std::unique_lock lock(mutex_);
  cancelled_ = true;
  const auto work = work_.lock();
  lock.unlock();
  if (work) work->cancel();
}

void CancelRelay::follow(std::weak_ptr<Cancellable> work) {
  std::unique_lock lock(mutex_);
  work_ = std::move(work);
  const auto cancelled = cancelled_ ? work_.lock() : nullptr;
  lock.unlock();
  if (cancelled) cancelled->cancel();
}

PromiseCore::PromiseCore(Queue queue, std::weak_ptr<Cancellable> cancellable)
    : queue_(queue ? std::move(queue) : Queue(CompletionQueue::shared())), cancellable_(std::move(cancellable)) {}

PromiseCore::~PromiseCore() {
  while (first_) first_ = std::move(first_->next_);  // one by one: a long chain must not end in deep recursion
}

void PromiseCore::publish(bool inTask) {
  std::unique_ptr<Callback> callbacks;
  {
    const std::lock_guard lock(mutex_);
    settled_ = true;
    settledChanged_.notify_all();
    if (!first_) return;
    running_ = true;
    if (inTask && CompletionQueue::current() == queue_.get()) callbacks = std::move(first_);
  }
  if (callbacks)
    runCallbacks(std::move(callbacks));
  else
    postCallbacks();
}

void PromiseCore::attach(std::unique_ptr<Callback> callback) {
  {
    const std::lock_guard lock(mutex_);
    Callback* const added = callback.get();
    (first_ ? last_->next_ : first_) = std::move(callback);
    last_ = added;
    if (!settled_ || running_) return;
    running_ = true;
  }
  postCallbacks();
}

void PromiseCore::postCallbacks() {
  queue_->post([self = boost::intrusive_ptr<PromiseCore>(this)] { self->runCallbacks(nullptr); });
}

// Runs `callbacks`, and then those that have been attached meanwhile. No lock is held while one of them runs or goes:
// what it holds may be the application's.
void PromiseCore::runCallbacks(std::unique_ptr<Callback> callbacks) {
  for (;;) {
    while (callbacks) {
      const auto callback = std::exchange(callbacks, std::move(callbacks->next_));
      const bool unseen = use_count() == 1;  // then nobody can attach any more, and `first_` may be read
      callback->run(*this, unseen && !callbacks && !first_);
    }
    const std::lock_guard lock(mutex_);
    callbacks = std::move(first_);
    if (callbacks) continue;
    running_ = false;
    return;
  }
}

bool PromiseCore::wait(Deadline deadline) const {
  if (settled_) return true;
  CompletionQueue* queue = CompletionQueue::current();
  if (queue == nullptr && Foundation::ProcessExit::begun()) queue = queue_.get();
  if (queue != nullptr) {
    struct Wake final : Callback {
      explicit Wake(Queue waiting) : waiting_(std::move(waiting)) {}
      void run(PromiseCore&, bool) noexcept override {
        waiting_->post([] {});
      }
      Queue waiting_;
    };
    const_cast<PromiseCore*>(this)->attach(std::make_unique<Wake>(queue->shared_from_this()));
    return queue->runUntil([this] { return settled(); }, deadline);
  }
  std::unique_lock lock(mutex_);
  const auto done = [this] { return settled_.load(); };
  if (deadline) return settledChanged_.wait_until(lock, *deadline, done);
  settledChanged_.wait(lock, done);
  return true;
}

void PromiseCore::cancel() const {
  if (settled()) return;
  if (const auto work = cancellable_.lock()) work->cancel();
}

void PromiseCore::addSource() { ++sources_; }

void PromiseCore::removeSource() {
  [[maybe_unused]] const int left = --sources_;
  assert((left > 0 || claimed_) && "a PromiseSource was dropped before it settled its promise");
}

}  // namespace HalvernApi::Promissum
