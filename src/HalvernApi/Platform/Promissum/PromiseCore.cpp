#include "HalvernApi/Platform/Promissum/PromiseCore.hpp"

#include <algorithm>
#include <cassert>
#include <utility>

#include "HalvernApi/Platform/Foundation/CompletionQueue.hpp"

namespace HalvernApi::Promissum {

using Foundation::CompletionQueue;
using Foundation::MutexLock;
using Foundation::ProcessExit;

Cancellable::~Cancellable() = default;
PromiseCore::Callback::~Callback() = default;

void Cancellable::cancel(std::shared_ptr<Cancellable> work) {
  while (work) work = work->cancelOrDelegate();
}

std::shared_ptr<Cancellable> CancelRelay::cancelOrDelegate() {
  const MutexLock lock(mutex_);
  cancelled_ = true;
  return work_.lock();
}

void CancelRelay::follow(std::weak_ptr<Cancellable> work) {
  MutexLock lock(mutex_);
  work_ = std::move(work);
  auto cancelled = cancelled_ ? work_.lock() : nullptr;
  lock.unlock();
  cancel(std::move(cancelled));
}

PromiseCore::PromiseCore(Queue queue, std::weak_ptr<Cancellable> cancellable)
    : queue_(queue ? std::move(queue) : Queue(CompletionQueue::shared())), cancellable_(std::move(cancellable)) {}

// A callback may own the next promise of a long chain. The loop destroys the callbacks of that promise, too, so that
// destructors are not nested deeply.
PromiseCore::~PromiseCore() {
  thread_local Callbacks* destroying = nullptr;
  if (destroying != nullptr) {
    destroying->append(std::move(callbacks_));
    return;
  }
  destroying = &callbacks_;
  while (callbacks_.pop()) {
  }
  destroying = nullptr;
}

bool PromiseCore::claim() {
  State expected = State::pending;
  return state_.compare_exchange_strong(expected, State::claimed);
}

bool PromiseCore::publish() {
  bool posted = false;
  std::vector<Queue> waiting;
  {
    const MutexLock lock(mutex_);
    posted = !callbacks_.empty();
    state_ = posted ? State::posted : State::settled;
    waiting.swap(waiting_);
  }
  settledChanged_.notifyAll();
  for (const Queue& queue : waiting) queue->wake();
  return posted;
}

void PromiseCore::post() {
  if (CompletionQueue::current() == queue_.get())
    queue_->postNext(this);
  else
    queue_->post(Foundation::TaskList(this));
}

void PromiseCore::attach(std::unique_ptr<Callback> callback) {
  {
    const MutexLock lock(mutex_);
    callbacks_.push(std::move(callback));
    if (state_ != State::settled) return;
    state_ = State::posted;
  }
  queue_->post(Foundation::TaskList(this));
}

bool PromiseCore::claimPosting() {
  const MutexLock lock(mutex_);
  if (callbacks_.empty() || state_ != State::settled) return false;
  state_ = State::posted;
  return true;
}

namespace {

// A list of the promises whose callbacks this thread is running, innermost first.
struct Running {
  PromiseCore& promise;
  Running* const outer;
  bool inHandler = false;  // false while continuations run in a wait of the handler
};
thread_local Running* innermost = nullptr;

}  // namespace

// The mutex is not locked while a callback runs or is destroyed, because the callback may own objects of the
// application.
bool PromiseCore::run() noexcept {
  Running running{*this, innermost};
  innermost = &running;
  bool isDone = false;
  while (!isDone && !ProcessExit::begun()) {
    MutexLock lock(mutex_);
    const auto callback = callbacks_.pop();
    isDone = !callback;
    if (isDone) state_ = State::settled;
    lock.unlock();
    running.inHandler = callback && callback->kind == Kind::handler;
    if (callback) callback->run(*this);
  }
  innermost = running.outer;
  return isDone || runWithoutHandlers();
}

bool PromiseCore::runWithoutHandlers() noexcept { return runContinuations(State::settled); }

// Runs all continuations, then sets the state to `after`. Returns true if no handler is left.
bool PromiseCore::runContinuations(State after) noexcept {
  Callbacks handlers;
  for (;;) {
    MutexLock lock(mutex_);
    auto callback = callbacks_.pop();
    if (!callback) {
      state_ = after;
      callbacks_.append(std::move(handlers));
      return callbacks_.empty();
    }
    lock.unlock();
    if (callback->kind == Kind::continuation)
      callback->run(*this);
    else
      handlers.push(std::move(callback));
  }
}

bool PromiseCore::wait(std::chrono::milliseconds timeout) {
  constexpr std::chrono::milliseconds zero{0}, century = std::chrono::hours(24 * 365 * 100);
  Foundation::Deadline deadline;
  if (timeout < century) deadline = std::chrono::steady_clock::now() + std::max(timeout, zero);
  MutexLock lock(mutex_);
  CompletionQueue* const current = CompletionQueue::current();
  if (current == nullptr || settled()) {
    while (!settled() && settledChanged_.wait(lock, deadline)) {
    }
    return settled();
  }
  const Queue queue = waiting_.emplace_back(current->shared_from_this());
  lock.unlock();
  const auto isSettled = [this] {
    // A handler on the stack of this thread may wait for a continuation of the handler's promise.
    for (Running* running = innermost; running != nullptr; running = running->outer) {
      if (!std::exchange(running->inHandler, false)) continue;
      (void)running->promise.runContinuations(State::posted);
      running->inHandler = true;
    }
    return settled();
  };
  queue->runUntil(isSettled, deadline);
  lock.lock();
  if (!settled()) waiting_.erase(std::find(waiting_.begin(), waiting_.end(), queue));
  return settled();
}

void PromiseCore::cancel() const {
  if (!settled()) Cancellable::cancel(cancellable_.lock());
}

void PromiseCore::removeSource() {
  [[maybe_unused]] const int left = --sources_;
  assert((left > 0 || state_ != State::pending) && "a PromiseSource was dropped before it settled its promise");
}

}  // namespace HalvernApi::Promissum
