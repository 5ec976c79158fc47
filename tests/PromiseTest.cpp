// Promises: on which thread and in which order their callbacks run, how they combine, wait and are cancelled.
#include <gmock/gmock.h>

#include <atomic>
#include <deque>
#include <future>

#include "ScriptedServer.hpp"
#include "TestSupport.hpp"

namespace HalvernApi::Tests {
namespace {

using namespace std::chrono_literals;
using Number = Promise<int, std::string>;
using Source = PromiseSource<int, std::string>;

const std::string cancelled = "network NSURLErrorDomain -999";
const Answer silence = {{Step::hold}}, heldAnswer = {{Step::hold}, json("{}")[0]};

// An application's main loop: tasks run where `runUntil` is called.
class MainLoop final : public DispatchQueue {
 public:
  void async(std::function<void()> task) override {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
    changed_.notify_one();
  }
  bool runUntil(const std::function<bool()>& done) {
    while (!done()) {
      std::unique_lock lock(mutex_);
      if (!changed_.wait_for(lock, 10s, [this] { return !tasks_.empty(); })) return false;
      const auto task = std::move(tasks_.front());
      tasks_.pop_front();
      lock.unlock();
      task();
    }
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> tasks_;
};

TEST(Handlers, RunInTheirOrderOnTheCompletionQueueAlsoWhenAttachedLate) {
  ScriptedServer server({heldAnswer});
  HttpApiService service(server.url(), {}, "key");
  std::vector<int> order;
  std::set<std::thread::id> threads;
  const auto note = [&](int number) {
    return [&, number](auto&&...) { order.push_back(number), threads.insert(std::this_thread::get_id()); };
  };
  const auto promise = service.resendValidationEmail("token");
  promise.then(note(1)).finally(note(2)).trap(note(99)).then(note(3));
  EXPECT_FALSE(promise.waitFor(1ms));
  server.release();
  EXPECT_TRUE(promise.waitFor(10s));
  std::promise<void> all;
  promise.then(note(4)).finally(note(5)).finally([&] { all.set_value(); });
  ASSERT_EQ(all.get_future().wait_for(10s), std::future_status::ready);
  EXPECT_THAT(order, ::testing::ElementsAre(1, 2, 3, 4, 5));
  EXPECT_EQ(threads.size(), 1);
  EXPECT_EQ(threads.count(std::this_thread::get_id()), 0);
}

TEST(Handlers, AllRunOnAQueueOfTheApplication) {
  ScriptedServer server({json("{}")});
  const auto loop = std::make_shared<MainLoop>();
  HttpApiService service(server.url(), {.completionQueue = loop}, "key");
  HttpApiService nowhere("no url at all", {.completionQueue = loop}, "key");
  std::vector<std::thread::id> threads;
  const auto note = [&](auto&&...) { threads.push_back(std::this_thread::get_id()); };
  const auto answered = service.resendValidationEmail("token");
  const auto failed = nowhere.resendValidationEmail("token");
  answered.map([&](Unit) { return note(), 1; }).then(note);
  failed.trap(note);
  EXPECT_TRUE(loop->runUntil([&] { return threads.size() == 3; }));
  answered.then(note);
  failed.finally(note);
  EXPECT_EQ(threads.size(), 3);  // never inside the call that attaches them
  EXPECT_TRUE(loop->runUntil([&] { return threads.size() == 5; }));
  EXPECT_THAT(threads, ::testing::Each(std::this_thread::get_id()));
}

TEST(Handlers, MayWaitForOtherPromisesOfTheirQueue) {
  ScriptedServer server({json("{}")});
  HttpApiService service(server.url(), {}, "key");
  const auto promise =
      service.resendValidationEmail("1").map([&](Unit) { return service.resendValidationEmail("2").get() == Unit(); });
  EXPECT_TRUE(promise.waitFor(10s) && promise.get() == true);
}

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
  const auto second = Promise<Unit, Error>::resolved({}).flatMap(call).map(same);
  ASSERT_TRUE(server.awaitRequests(3));
  mapped.cancel();
  second.cancel();
  EXPECT_EQ(outcomeOf(mapped), cancelled);
  EXPECT_EQ(outcomeOf(second), cancelled);
}

TEST(Calls, FromManyThreadsAllSettleOnceHoweverTheirHandlersAreAttached) {
  constexpr int callers = 4, calls = 50;
  ScriptedServer server({json("{}")});
  HttpApiService service(server.url(), {}, "key");
  std::atomic<int> settled = 0, handled = 0;
  std::promise<void> all;
  const auto handle = [&] {
    if (++handled == 2 * callers * calls) all.set_value();
  };
  const auto call = [&] {
    for (int number = 0; number < calls; ++number) {
      const auto promise = service.resendValidationEmail("token").map([](Unit) { return 1; });
      promise.then([&](int) { ++settled; })
          .trap([&](const Error& error) { settled += error.kind() == Error::Case::network; })
          .finally(handle);
      if (number % 5 == 0) promise.cancel();
      if (number % 3 == 0) (void)promise.get();
      promise.finally(handle);
    }
  };
  std::vector<std::thread> threads;
  for (int caller = 0; caller < callers; ++caller) threads.emplace_back(call);
  for (std::thread& thread : threads) thread.join();
  ASSERT_EQ(all.get_future().wait_for(30s), std::future_status::ready);
  EXPECT_EQ(settled, callers * calls);
}

}  // namespace
}  // namespace HalvernApi::Tests
