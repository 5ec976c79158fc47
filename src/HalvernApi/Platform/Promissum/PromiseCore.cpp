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
    : queue_(queue ? std::move(queue) : CompletionQueue::shared()), cancellable_(std::move(cancellable)) {}

PromiseCore::~PromiseCore() {
  while (first_) first_ = std::move(first_->next_);  // one by one: a long chain must not end in deep recursion
}

bool PromiseCore::settled() const {
  const std::lock_guard lock(mutex_);
  return settled_;
}

bool PromiseCore::claim() {
  const std::lock_guard lock(mutex_);
  return !std::exchange(claimed_, true);
}

void PromiseCore::publish(bool inTask) {
  {
    const std::lock_guard lock(mutex_);
    settled_ = true;
    running_ = first_ != nullptr;
    settledChanged_.notify_all();
    if (!running_) return;
  }
  if (inTask && CompletionQueue::current() == queue_.get())
    runCallbacks();
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
  queue_->post([self = boost::intrusive_ptr<PromiseCore>(this)] { self->runCallbacks(); });
}

void PromiseCore::runCallbacks() {
  std::unique_lock lock(mutex_);
  while (first_) {
    const std::unique_ptr<Callback> callback = std::move(first_);
    first_ = std::move(callback->next_);
    const bool more = first_ != nullptr;
    lock.unlock();
    callback->run(*this, !more && use_count() == 1);
    lock.lock();
  }
  running_ = false;
}

bool PromiseCore::wait(Deadline deadline) const {
  std::unique_lock lock(mutex_);
  if (settled_) return true;
  CompletionQueue* queue = CompletionQueue::current();
  if (queue == nullptr && Foundation::ProcessExit::begun()) queue = queue_.get();
  if (queue != nullptr) {
    lock.unlock();
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
  const auto done = [this] { return settled_; };
  if (deadline) return settledChanged_.wait_until(lock, *deadline, done);
  settledChanged_.wait(lock, done);
  return true;
}

void PromiseCore::cancel() const {
  if (settled()) return;
  if (const auto work = cancellable_.lock()) work->cancel();
}

void PromiseCore::addSource() {
  const std::lock_guard lock(mutex_);
  ++sources_;
}

void PromiseCore::removeSource() {
  const std::lock_guard lock(mutex_);
  --sources_;
  assert((sources_ > 0 || claimed_) && "a PromiseSource was dropped before it settled its promise");
}

}  // namespace HalvernApi::Promissum
