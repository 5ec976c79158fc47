#pragma once

#include <concepts>
#include <coroutine>
#include <functional>
#include <optional>
#include <type_traits>

#include "HalvernApi/Platform/Foundation/Expected.hpp"
#include "HalvernApi/Platform/Promissum/PromiseCore.hpp"

// Promises: results that are still to come.
namespace HalvernApi::Promissum {

using Foundation::Expected;
using Foundation::Unexpected;

template <class Value, class E>
class Promise;

// What a function for `map` returns.
template <class T>
concept NotVoid = !std::is_void_v<T>;

// What a function for `flatMap` returns.
template <class T, class E>
concept PromiseThatFailsWith = std::same_as<T, Promise<typename T::ValueType, E>>;

// \cond
// The shared result behind promises of one type. For those who make promises; applications use PromiseSource.
template <class Value, class E>
class PromiseState final : public PromiseCore {
 public:
  using PromiseCore::PromiseCore;
  using Result = Expected<Value, E>;

  // Nothing happens when it was settled before. The caller holds a reference.
  void settle(Result result) {
    if (settleWithoutPosting(std::move(result))) post();
  }
  // True if there are callbacks: the caller must then put this into its queue, as a task.
  [[nodiscard]] bool settleWithoutPosting(Result result) {
    if (!claim()) return false;
    result_.emplace(std::move(result));
    return publish();
  }

  // Once settled.
  const Result& result() const { return *result_; }

  // Calls `f` with the result once there is one.
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
  std::optional<Result> result_;  // written by who claimed it, before it is published; unchanged from then on
};

// \endcond

// A handle to the one result that an asynchronous operation comes to, a value or an error. Copies are cheap and share
// the result; every member may be called from any thread. Dropping all handles neither cancels the operation nor keeps
// callbacks from running.
//
// Callbacks run on the completion queue (of the session that made the promise, or one that all other promises share),
// one at a time, in the order in which they were attached, never inside the call that attaches them. Once the process
// exits, none begins. A callback that throws ends the process.
template <class Value, class E>
class [[nodiscard]] Promise {
 public:
  // \cond
  using State = PromiseState<Value, E>;
  // \endcond

  // What it comes to, and `get` and `co_await` give.
  using Result = Expected<Value, E>;
  // What it comes to on success.
  using ValueType = Value;
  // What it comes to on failure.
  using ErrorType = E;

  // \cond
  explicit Promise(boost::intrusive_ptr<State> state) : state_(std::move(state)) {}
  // \endcond

  // Settled from the start, for fakes of a service. Handlers run on a thread that all promises without a session share.
  static Promise resolved(Value value) { return settled(Result(std::move(value))); }
  // As `resolved`, with an error.
  static Promise rejected(E error) { return settled(Unexpected<E>(std::move(error))); }

  // A promise of what `f` makes of this one's Expected: another Expected. `f` runs on the completion queue. Adds no hop
  // between threads. Cancelling the new promise cancels this one.
  template <class F, class Next = std::decay_t<std::invoke_result_t<F&, const Result&>>>
  Promise<typename Next::value_type, typename Next::error_type> mapResult(F f) const {
    using NextState = PromiseState<typename Next::value_type, typename Next::error_type>;
    boost::intrusive_ptr<NextState> next(new NextState(state_->queue(), state_->cancellable()));
    state_->whenSettled(Kind::continuation, [f = std::move(f), next](const Result& result) mutable {
      next->settle(std::invoke(f, result));
    });
    return Promise<typename Next::value_type, typename Next::error_type>(std::move(next));
  }

  // A promise of `f(value)`; an error is passed on.
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
  void map(F f) const = delete;  // map takes a function that returns a value: use then
  // \endcond

  // A promise of the same value, or of `f(error)`.
  template <class F, class E2 = std::decay_t<std::invoke_result_t<F&, const E&>>>
  Promise<Value, E2> mapError(F f) const {
    return mapResult([f = std::move(f)](const Result& result) mutable -> Expected<Value, E2> {
      if (!result) return Unexpected<E2>(std::invoke(f, result.error()));
      return *result;
    });
  }

  // A promise of what the promise `f(value)` comes to; an error is passed on. Cancelling it cancels whichever is
  // pending.
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

  // Has `f(value)` run on success. Gives this promise back, for the next callback.
  template <class F>
  const Promise& then(F f) const {
    static_assert(std::is_invocable_v<F&, const Value&>, "then takes a function of the promise's value");
    return handle([f = std::move(f)](const Result& result) mutable {
      if constexpr (std::is_invocable_v<F&, const Value&>)
        if (result) std::invoke(f, *result);
    });
  }

  // Has `f(error)` run on failure, cancellation included.
  template <class F>
  const Promise& trap(F f) const {
    static_assert(std::is_invocable_v<F&, const E&>, "trap takes a function of the promise's error");
    return handle([f = std::move(f)](const Result& result) mutable {
      if constexpr (std::is_invocable_v<F&, const E&>)
        if (!result) std::invoke(f, result.error());
    });
  }

  // Has `f()` run either way.
  template <class F>
  const Promise& finally(F f) const {
    return handle([f = std::move(f)](const Result&) mutable { std::invoke(f); });
  }

  // Blocks until settled. Inside a handler it runs that queue's other tasks while it waits; elsewhere on the thread of
  // an application's queue it would keep the answer from arriving.
  [[nodiscard]] Result get() const {
    state_->wait(std::chrono::milliseconds::max());
    return state_->result();
  }

  // As `get`, but gives up after `timeout` with false.
  bool waitFor(std::chrono::milliseconds timeout) const { return state_->wait(timeout); }

  // Asks the exchange beneath, through any chain of promises derived from one another, to end: it fails with
  // `network` -999 soon. Nothing happens once settled, or where there is no exchange beneath.
  void cancel() const { state_->cancel(); }

  // `co_await promise` yields an Expected<Value, E>; the coroutine goes on in a task of the completion queue.
  // Destroying the coroutine is how to stop waiting: nothing touches it afterwards.
  auto operator co_await() const {
    struct Awaiter {
      boost::intrusive_ptr<State> state;
      // Set by whichever comes first: the end of waiting, or this awaiter's.
      std::shared_ptr<std::atomic<bool>> over = std::make_shared<std::atomic<bool>>(false);

      explicit Awaiter(boost::intrusive_ptr<State> awaited) : state(std::move(awaited)) {}
      Awaiter(const Awaiter&) = delete;
      Awaiter& operator=(const Awaiter&) = delete;
      ~Awaiter() { *over = true; }
      bool await_ready() const noexcept { return false; }
      void await_suspend(std::coroutine_handle<> coroutine) {
        // From a copy: the coroutine may go on, and end this awaiter, before the call returns.
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

// The end of a promise that settles it: for code that has a result to give, such as a fake of a service. Copies settle
// the same promise; every member may be called from any thread. Dropping the last copy before it has settled its
// promise is a programming error, and asserted.
template <class Value, class E>
class PromiseSource {
 public:
  // A source of a promise of its own, whose callbacks run on a thread that all promises without a session share.
  PromiseSource() : state_(new PromiseState<Value, E>(nullptr)) { state_->addSource(); }
  // \cond
  PromiseSource(const PromiseSource& other) : state_(other.state_) { state_->addSource(); }
  PromiseSource& operator=(PromiseSource other) {
    std::swap(state_, other.state_);
    return *this;
  }
  ~PromiseSource() { state_->removeSource(); }
  // \endcond

  // The promise that it settles: the same one at every call.
  Promise<Value, E> promise() const { return Promise<Value, E>(state_); }

  // Settles the promise with a value. The first call of `resolve` and `reject` wins; later ones do nothing.
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
