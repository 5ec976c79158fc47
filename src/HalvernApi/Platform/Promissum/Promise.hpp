#pragma once

#include <concepts>
#include <coroutine>
#include <functional>
#include <optional>
#include <type_traits>

#include "HalvernApi/Platform/Foundation/Expected.hpp"
#include "HalvernApi/Platform/Promissum/PromiseCore.hpp"

// Promises: the results of asynchronous operations.
namespace HalvernApi::Promissum {

using Foundation::Expected;
using Foundation::Unexpected;

template <class Value, class E>
class Promise;

// A type that the function passed to `map` may return.
template <class T>
concept NotVoid = !std::is_void_v<T>;

// A type that the function passed to `flatMap` may return.
template <class T, class E>
concept PromiseThatFailsWith = std::same_as<T, Promise<typename T::ValueType, E>>;

// \cond
// The state that all copies of a promise share. Applications create promises with PromiseSource.
template <class Value, class E>
class PromiseState final : public PromiseCore {
 public:
  using PromiseCore::PromiseCore;
  using Result = Expected<Value, E>;

  // Does nothing if the promise has already been settled. The caller must hold a reference to this object.
  void settle(Result result) {
    if (settleWithoutPosting(std::move(result))) post();
  }
  // Returns true if there are callbacks. The caller must then put this object into its queue as a task.
  [[nodiscard]] bool settleWithoutPosting(Result result) {
    if (!claim()) return false;
    result_.emplace(std::move(result));
    return publish();
  }

  // May only be called after the promise has settled.
  const Result& result() const { return *result_; }

  // Calls `f` with the result once the promise has settled.
  template <class F>
  void whenSettled(Kind kind, F f) {
    struct Call final : Callback {
      Call(Kind itsKind, F function) : Callback(itsKind), function_(std::move(function)) {}
      void run(PromiseCore& settled) noexcept override {
        std::invoke(function_, static_cast<const PromiseState&>(settled).result());
      }
      F function_;
    };
    attach(std::make_unique<Call>(kind, std::move(f)));
  }

 private:
  std::optional<Result> result_;  // written between `claim` and `publish`; never changed after that
};

// \endcond

// A handle to the result of an asynchronous operation: a value or an error. Copies are cheap and share the result.
// Every member may be called from any thread. Destroying all handles does not cancel the operation, and its callbacks
// still run.
//
// Callbacks run on the completion queue of the session that created the promise. All promises without a session share
// one queue. Callbacks run one at a time, in the order in which they were attached. They do not run inside the call
// that attaches them, unless an application's queue runs its tasks inside `async`. After process exit has begun, no
// callback of `then`, `trap` or `finally` starts, and no coroutine continues. A callback that throws ends the process.
template <class Value, class E>
class [[nodiscard]] Promise {
 public:
  // \cond
  using State = PromiseState<Value, E>;
  // \endcond

  // What `get` and `co_await` return.
  using Result = Expected<Value, E>;
  using ValueType = Value;
  using ErrorType = E;

  // \cond
  explicit Promise(boost::intrusive_ptr<State> state) : state_(std::move(state)) {}
  // \endcond

  // Returns a promise that has already settled, for fakes of a service. Its handlers run on a thread that all promises
  // without a session share.
  static Promise resolved(Value value) { return settled(Result(std::move(value))); }
  // Like `resolved`, but with an error.
  static Promise rejected(E error) { return settled(Unexpected<E>(std::move(error))); }

  // Returns a promise that settles with `f(result)`. `result` is the Expected of this promise, and `f` returns another
  // Expected. `f` runs on the completion queue, without an additional switch of threads. Cancelling the new promise
  // cancels this promise.
  template <class F, class Next = std::decay_t<std::invoke_result_t<F&, const Result&>>>
  Promise<typename Next::value_type, typename Next::error_type> mapResult(F f) const {
    using NextState = PromiseState<typename Next::value_type, typename Next::error_type>;
    boost::intrusive_ptr<NextState> next(new NextState(state_->queue(), state_->cancellable()));
    state_->whenSettled(Kind::continuation, [f = std::move(f), next](const Result& result) mutable {
      next->settle(std::invoke(f, result));
    });
    return Promise<typename Next::value_type, typename Next::error_type>(std::move(next));
  }

  // Returns a promise that settles with `f(value)`, or with the error of this promise.
  template <class F, NotVoid U = std::decay_t<std::invoke_result_t<F&, const Value&>>>
  Promise<U, E> map(F f) const {
    return mapResult([f = std::move(f)](const Result& result) mutable -> Expected<U, E> {
      if (!result) return Unexpected<E>(result.error());
      return std::invoke(f, *result);
    });
  }

  // \cond
  template <class F>
  requires std::is_void_v<std::invoke_result_t<F&, const Value&>>
  void map(F f) const = delete;  // map requires a function that returns a value: use then
  // \endcond

  // Returns a promise that settles with the value of this promise, or with `f(error)`.
  template <class F, class E2 = std::decay_t<std::invoke_result_t<F&, const E&>>>
  Promise<Value, E2> mapError(F f) const {
    return mapResult([f = std::move(f)](const Result& result) mutable -> Expected<Value, E2> {
      if (!result) return Unexpected<E2>(std::invoke(f, result.error()));
      return *result;
    });
  }

  // Returns a promise that settles with the result of the promise `f(value)`, or with the error of this promise.
  // Cancelling the new promise cancels this promise or, if this has settled, the promise that `f` returned.
  template <class F, class Next = std::invoke_result_t<F&, const Value&>>
  Next flatMap(F f) const {
    static_assert(PromiseThatFailsWith<Next, E>,
                  "flatMap takes a function that returns a Promise with the same error type");
    const auto relay = std::make_shared<CancelRelay>();
    relay->follow(state_->cancellable());
    boost::intrusive_ptr<typename Next::State> next(new typename Next::State(state_->queue(), relay));
    state_->whenSettled(Kind::continuation, [f = std::move(f), next, relay](const Result& result) mutable {
      if (!result) return next->settle(Unexpected<E>(result.error()));
      const Next inner = std::invoke(f, *result);
      relay->follow(inner.state_->cancellable());
      inner.state_->whenSettled(Kind::continuation, [next = std::move(next), relay](const typename Next::Result& last) {
        next->settle(last);
      });
    });
    return Next(std::move(next));
  }

  // Calls `f(value)` on success. Returns this promise, so that calls can be chained.
  template <class F>
  const Promise& then(F f) const {
    static_assert(std::is_invocable_v<F&, const Value&>, "then takes a function of the promise's value");
    return handle([f = std::move(f)](const Result& result) mutable {
      if constexpr (std::is_invocable_v<F&, const Value&>)
        if (result) std::invoke(f, *result);
    });
  }

  // Calls `f(error)` on failure, including cancellation. Returns this promise.
  template <class F>
  const Promise& trap(F f) const {
    static_assert(std::is_invocable_v<F&, const E&>, "trap takes a function of the promise's error");
    return handle([f = std::move(f)](const Result& result) mutable {
      if constexpr (std::is_invocable_v<F&, const E&>)
        if (!result) std::invoke(f, result.error());
    });
  }

  // Calls `f()` on success and on failure. Returns this promise.
  template <class F>
  const Promise& finally(F f) const {
    return handle([f = std::move(f)](const Result&) mutable { std::invoke(f); });
  }

  // Blocks until the promise has settled. Inside a handler, it runs other tasks of the same completion queue while it
  // waits. Outside a handler, do not call it on the thread of an application's queue: it would block the queue that has
  // to settle the promise.
  [[nodiscard]] Result get() const {
    state_->wait(std::chrono::milliseconds::max());
    return state_->result();
  }

  // Like `get`, but waits for `timeout` at most. Returns whether the promise has settled.
  bool waitFor(std::chrono::milliseconds timeout) const { return state_->wait(timeout); }

  // Cancels the exchange that settles this promise directly or through a chain of derived promises. The exchange then
  // fails with `network` -999 soon. Does nothing if the promise has settled or there is no exchange.
  void cancel() const { state_->cancel(); }

  // `co_await promise` returns an Expected<Value, E>. The coroutine continues in a task of the completion queue. To
  // stop waiting, destroy the coroutine: the library does not use it afterwards.
  auto operator co_await() const {
    struct Awaiter {
      boost::intrusive_ptr<State> state;
      // True after the coroutine was resumed or this awaiter was destroyed.
      std::shared_ptr<std::atomic<bool>> over = std::make_shared<std::atomic<bool>>(false);

      explicit Awaiter(boost::intrusive_ptr<State> awaited) : state(std::move(awaited)) {}
      Awaiter(const Awaiter&) = delete;
      Awaiter& operator=(const Awaiter&) = delete;
      ~Awaiter() { *over = true; }
      bool await_ready() const noexcept { return false; }
      void await_suspend(std::coroutine_handle<> coroutine) {
        // A copy, because the coroutine may continue and destroy this awaiter before `whenSettled` returns.
        const auto kept = state;
        kept->whenSettled(Kind::handler, [coroutine, over = over](const Result&) {
          if (!over->exchange(true)) coroutine.resume();
        });
      }
      Result await_resume() { return state->result(); }
    };
    return Awaiter(state_);
  }

 private:
  template <class, class>
  friend class Promise;
  using Kind = PromiseCore::Kind;

  template <class F>
  const Promise& handle(F f) const {
    state_->whenSettled(Kind::handler, std::move(f));
    return *this;
  }

  static Promise settled(Result result) {
    boost::intrusive_ptr<State> state(new State(nullptr));
    state->settle(std::move(result));
    return Promise(std::move(state));
  }

  boost::intrusive_ptr<State> state_;
};

// Creates a promise and settles it, for example in a fake of a service. Copies settle the same promise. Every member
// may be called from any thread. Destroying the last copy before the promise has settled is a programming error, which
// an assertion reports.
template <class Value, class E>
class PromiseSource {
 public:
  // Creates a promise. Its callbacks run on a thread that all promises without a session share.
  PromiseSource() : state_(new PromiseState<Value, E>(nullptr)) { state_->addSource(); }
  // \cond
  PromiseSource(const PromiseSource& other) : state_(other.state_) { state_->addSource(); }
  PromiseSource& operator=(PromiseSource other) {
    std::swap(state_, other.state_);
    return *this;
  }
  ~PromiseSource() { state_->removeSource(); }
  // \endcond

  // The promise that this source settles.
  Promise<Value, E> promise() const { return Promise<Value, E>(state_); }

  // Settles the promise with a value. Only the first call of `resolve` or `reject` has an effect.
  void resolve(Value value) const { state_->settle(std::move(value)); }
  // Settles the promise with an error.
  void reject(E error) const { state_->settle(Unexpected<E>(std::move(error))); }

 private:
  boost::intrusive_ptr<PromiseState<Value, E>> state_;
};

}  // namespace HalvernApi::Promissum

namespace HalvernApi {
using Promissum::Promise;
using Promissum::PromiseSource;
}  // namespace HalvernApi
