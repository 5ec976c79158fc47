// Promises: how they combine, are awaited and cancelled. Where and when their handlers run is in LifetimeTest.cpp.
#include <gmock/gmock.h>

#include <thread>

#include "ScriptedServer.hpp"
#include "TestSupport.hpp"

namespace HalvernApi::Tests {
namespace {

using namespace std::chrono_literals;
using Number = Promise<int, std::string>;
using Source = PromiseSource<int, std::string>;

const std::string cancelled = "network NSURLErrorDomain -999";
const Answer silence = {{Step::hold}};

TEST(Promises, CombineAndSettleOnce) {
  const auto half = [](int n) { return n % 2 == 0 ? Number::resolved(n / 2) : Number::rejected("odd"); };
  const auto size = [](const std::string& error) { return error.size(); };
  const auto sum = [](int n) { return n + 0.5; };
  EXPECT_EQ(Number::resolved(4).map(sum).mapError(size).get(), 4.5);
  EXPECT_EQ(Number::rejected("bad").map(sum).mapError(size).get(), Unexpected<std::size_t>(3));
  EXPECT_EQ(Number::resolved(4).flatMap(half).flatMap(half).get(), 1);
  EXPECT_EQ(Number::resolved(2).flatMap(half).flatMap(half).get(), Unexpected<std::string>("odd"));
  EXPECT_EQ(Number::rejected("bad").flatMap(half).get(), Unexpected<std::string>("bad"));
  const Source source, failing;
  EXPECT_FALSE(source.promise().waitFor(0ms));
  source.resolve(1), source.resolve(2), source.reject("late");
  failing.reject("first"), failing.resolve(3);
  EXPECT_EQ(source.promise().get(), 1);
  EXPECT_EQ(failing.promise().get(), Unexpected<std::string>("first"));
}

struct Detached {
  struct promise_type {
    Detached get_return_object() { return {}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { std::terminate(); }
  };
};

Detached callTwice(ApiService& service, PromiseSource<std::thread::id, Error> thread) {
  const auto first = co_await service.resendValidationEmail("1");
  const auto second = co_await service.checkIfValidated("2");
  EXPECT_EQ(first, Unit());
  EXPECT_EQ(second, Unexpected<Error>(Error::notAuthorized()));
  thread.resolve(std::this_thread::get_id());
}

TEST(Promises, AreAwaitedByCoroutinesWhichGoOnOnTheCompletionQueue) {
  ScriptedServer server({json("{}"), json("{}"), http(401, "", "")});
  HttpApiService service(server.url(), {}, "key");
  const auto queue = service.resendValidationEmail("0").map([](Unit) { return std::this_thread::get_id(); }).get();
  const PromiseSource<std::thread::id, Error> thread;
  callTwice(service, thread);
  EXPECT_EQ(thread.promise().get(), queue.value());
}

TEST(Cancelling, ReachesTheExchangeThroughEveryChainUntilItHasSettled) {
  ScriptedServer server({json("{}"), silence});
  HttpApiService service(server.url(), {}, "key");
  const auto same = [](const auto& value) { return value; };
  const auto call = [&](Unit) { return service.resendValidationEmail("token"); };
  const auto settled = call({}).map(same);
  EXPECT_EQ(settled.get(), Unit());
  settled.cancel();
  EXPECT_EQ(settled.get(), Unit());
  const auto mapped = call({}).map(same).mapError(same).map(same);
  const auto first = call({}).flatMap(call).map(same);
  const auto second = Promise<Unit, Error>::resolved({}).flatMap(call).map(same);
  const PromiseSource<Unit, Error> source;
  const auto before = source.promise().flatMap(call);
  ASSERT_TRUE(server.awaitRequests(4));
  for (const auto& promise : {mapped, first, second, before}) promise.cancel();
  source.resolve({});  // which begins a call that is cancelled already
  for (const auto& promise : {mapped, first, second, before}) EXPECT_EQ(outcomeOf(promise), cancelled);
}

}  // namespace
}  // namespace HalvernApi::Tests
