// Tests what happens to calls, handlers and threads when calls are cancelled, objects are destroyed, or the process
// exits or forks, and where handlers run.
#include <malloc.h>

#include <ctime>
#include <fstream>
#include <iostream>

#include "Support.hpp"

namespace HalvernApi::Tests {
namespace {

auto soon() { return 100ms * slowness(); }

constexpr auto stages = {Stage::lookingUp, Stage::connecting, Stage::sending, Stage::waiting, Stage::receiving};
constexpr std::size_t largeBody = 8 << 20;  // more than the socket buffers hold

TEST(Destroying, SettlesEveryCallOnceAndImmediatelyAndLeavesNothingBehind) {
  std::thread([] {}).join();  // a sanitizer may start a thread with the first one of the process
  for (const Stage stage : stages)
    for (const std::size_t calls : {1UL, 6UL, 1000UL}) {
      SCOPED_TRACE(testing::Message() << "stage " << static_cast<int>(stage) << ", calls " << calls);
      const ProcessResources before;
      std::atomic<std::size_t> settled = 0;
      {
        StallingServer stalling(stage, calls);
        const auto queue = calls == 6 ? std::make_shared<InlineQueue>() : nullptr;
        auto session = std::make_unique<SessionManager>(URLSessionConfiguration{.completionQueue = queue});
        const std::string body(stage == Stage::sending ? largeBody / calls : 1, 'x');
        std::vector<Promise<Unit, Error>> promises;
        for (std::size_t number = 0; number < calls; ++number)
          promises.push_back(call(*session, stalling.url(), body).finally([&] { ++settled; }));
        ASSERT_TRUE(stalling.awaitCalls(std::min<std::size_t>(calls, 6)));
        const auto start = Clock::now();
        const std::clock_t busy = std::clock();
        session.reset();
        EXPECT_LT(std::clock() - busy, CLOCKS_PER_SEC / 10 * slack);
        EXPECT_LT(Clock::now() - start, calls < 1000 ? soon() : 20 * soon());  // other queues may be busy
        EXPECT_TRUE(!queue || settled == calls);  // they ran on the session's thread, which has been joined
        for (const auto& promise : promises) EXPECT_EQ(outcomeOf(promise.finally([&] { ++settled; })), cancelled);
        EXPECT_TRUE(eventually([&] { return settled == 2 * calls; }));
      }
      EXPECT_TRUE(eventually([&] { return ProcessResources().isSubsetOf(before); }));
      EXPECT_EQ(settled, 2 * calls);
    }
}

TEST(LastReference, MayBeDroppedInAHandler) {
  for (const auto& queue : queues())
    for (const std::size_t which : {0UL, 1UL, 2UL}) {
      const ProcessResources before;
      {
        ScriptedServer server({heldAnswer});
        auto service =
            std::make_shared<HttpApiService>(server.url(), URLSessionConfiguration{.completionQueue = queue}, "");
        auto promise = std::make_shared<Promise<Unit, Error>>(service->resendValidationEmail("token"));
        std::atomic<bool> done = false;
        std::array<std::shared_ptr<void>, 3> owners = {service, service->manager(), promise};
        promise->finally([&done, last = std::exchange(owners, {})[which]]() mutable {
          last = nullptr;
          done = true;
        });
        service = nullptr;
        promise = nullptr;
        server.release();
        EXPECT_TRUE(eventually([&] { return done.load(); }));
      }
      EXPECT_TRUE(eventually([&] { return ProcessResources().isSubsetOf(before); })) << which;
    }
}

TEST(ProcessExit, IsCleanAndRunsNoHandler) {
  for (const std::size_t which : {0UL, 1UL, 2UL, 3UL})
    for (const bool insideAHandler : {false, true}) {
      SCOPED_TRACE(testing::Message() << "queue " << which << (insideAHandler ? ", inside a handler" : ""));
      expectCleanExit([&] {
        static ScriptedServer server({json("{}"), {{Step::hold}}});
        // Never destroyed: the threads of these queues run until the process ends.
        static const auto& kept = *new auto(queues());
        (void)HttpApiService(server.url(), {}, "key").resendValidationEmail("token").get();
        // This service is created after the first thread of the library.
        static HttpApiService service(server.url(), {.completionQueue = kept[which]}, "key");
        const auto leave = [] {
          std::shared_ptr<void> held(nullptr, [](void*) { std::_Exit(4); });  // must not be destroyed at exit
          service.resendValidationEmail("token").finally([held = std::move(held)] { std::_Exit(3); });
          if (server.awaitRequests(2)) std::exit(0);
        };
        if (!insideAHandler) leave();
        service.resendValidationEmail("not a\ntoken").finally(leave);
        for (;;) ::pause();
      });
    }
}

TEST(ProcessExit, CancelsCallsThatStartAfterIt) {
  expectCleanExit([] {
    static ScriptedServer& server = *new ScriptedServer({json("{}")});
    static HttpApiService& service = *new HttpApiService(server.url(), {}, "key");
    static const struct Late {
      ~Late() {
        std::vector<std::jthread> threads;
        for (int number = 0; number < 4; ++number)
          threads.emplace_back([] {
            HttpApiService young(server.url(), {}, "key");
            for (int round = 0; round < 50; ++round) {
              const auto sent = (round % 2 == 0 ? service : young).resendValidationEmail("token");
              const auto promise = sent.map([](Unit unit) { return unit; });
              if (!promise.waitFor(20s) || outcomeOf(promise) != cancelled) std::_Exit(3);
            }
          });
      }
    } late;
    if (outcomeOf(service.resendValidationEmail("token")) != "success") std::_Exit(4);
    static HttpApiService& stuck = *new HttpApiService(server.url(), {}, "key");
    stuck.resendValidationEmail("not a\ntoken").finally([] {
      for (;;) ::pause();  // exit waits for it, at most a second
    });
    std::thread([] {
      for (;;) (void)service.resendValidationEmail("token").get();
    }).detach();
    std::exit(0);
  });
}

TEST(ProcessExit, WaitsForTheRunningHandlerAndStartsNoOther) {
  expectCleanExit([] {
    static std::atomic<bool> blocks = false, done = false;
    static const std::shared_ptr<void> last(nullptr, [](void*) { std::_Exit(done ? 0 : 5); });
    static StallingServer& stalling = *new StallingServer(Stage::waiting, 2);
    static HttpApiService& service = *new HttpApiService(stalling.url(), {}, "key");
    service.resendValidationEmail("not a\ntoken").finally([] {
      blocks = true;
      (void)service.resendValidationEmail("token").get();
      std::this_thread::sleep_for(200ms);  // the handler still works while the process exits
      done = true;
    });
    service.resendValidationEmail("token").finally([] { std::_Exit(3); });
    if (!eventually([] { return blocks.load(); }) || !stalling.awaitCalls(2)) std::_Exit(4);
    static HttpApiService& other = *new HttpApiService("", {}, "key");
    (void)other.resendValidationEmail("token").get();  // starts the thread that runs the next handler
    other.resendValidationEmail("token").finally([] { std::exit(4); });
    for (;;) ::pause();
  });
}

TEST(ProcessExit, WaitsForNoFinishedHandlerAndLeaksNothing) {
  expectCleanExit([] {
    static Clock::time_point start;
    static const std::shared_ptr<void> last(nullptr, [](void*) {
      if (Clock::now() - start >= 1s) std::_Exit(5);
    });
    const Identity identity;
    auto server = std::make_unique<ScriptedServer>(std::vector<Answer>{json("{}")}, identity.channels);
    static HttpApiService service(server->url(), {.certificateAuthorityFile = identity.file()}, "key");
    static std::atomic<bool> handled = false;
    const auto call = service.resendValidationEmail("token").finally([] { handled = true; });
    if (outcomeOf(call) != "success" || !eventually([] { return handled.load(); })) std::_Exit(4);
    server.reset();  // otherwise its thread would use OpenSSL while OpenSSL is cleaned up
    start = Clock::now();
    std::exit(0);  // runs the leak checker
  });
}

// Drops its first task.
struct LossyQueue final : DispatchQueue {
  void async(std::function<void()> task) override {
    if (++tasks > 1) task();
  }
  std::atomic<int> tasks = 0;
};

TEST(Forking, MakesCallsOfTheChildFailAndLeavesTheParentAlone) {
  const auto addOne = [] { return Promise<int, Unit>::resolved(1).map([](int one) { return one + 1; }).get().value(); };
  EXPECT_EQ(addOne(), 2);
  EXPECT_EQ(statusOfChild(addOne), 2);  // promises without a session work in the child
  ScriptedServer server({heldAnswer});
  auto service = std::make_unique<HttpApiService>(server.url(), URLSessionConfiguration{}, "key");
  const auto pending = service->resendValidationEmail("token");
  ASSERT_TRUE(server.awaitRequests(1));
  const int status = statusOfChild([&]() -> int {
    pending.cancel();
    if (outcomeOf(service->resendValidationEmail("token")) != cancelled) return 8;
    service.reset();
    std::exit(7);
  });
  EXPECT_EQ(status, 7);
  server.release();
  EXPECT_EQ(outcomeOf(pending), "success");
  EXPECT_EQ(outcomeOf(service->resendValidationEmail("token")), "success");
  // Tasks in an application's queue belong to the parent: the child does not run them, not even at exit.
  const auto queue = std::make_shared<LossyQueue>();
  HttpApiService other(server.url(), {.completionQueue = queue}, "key");
  const auto waiting = other.resendValidationEmail("token").map([parent = ::getpid()](Unit unit) {
    if (::getpid() != parent) std::_Exit(9);
    return unit;
  });
  ASSERT_TRUE(eventually([&] { return queue->tasks == 1; }));
  EXPECT_EQ(statusOfChild([]() -> int { std::exit(7); }), 7);
}

TEST(Calls, EndSoonAtEveryStageAndAffectNoOther) {
  constexpr auto limit = 150ms * slack;
  // A call of the first session is cancelled. Calls of the others reach a limit: on silence, or on the whole call.
  const std::vector<URLSessionConfiguration> sessions = {
      {}, {.timeoutIntervalForRequest = limit}, {.timeoutIntervalForResource = limit}};
  for (const Stage stage : stages)
    for (std::size_t which = 0; which < sessions.size(); ++which) {
      SCOPED_TRACE(testing::Message() << "stage " << static_cast<int>(stage) << ", session " << which);
      const bool byLimit = which > 0;
      const Clock::duration least = byLimit ? limit - 1ms : 0ms;  // libcurl counts whole milliseconds
      StallingServer stalling(stage, 1);
      ScriptedServer server({heldAnswer});
      SessionManager session(sessions[which]);
      const auto start = Clock::now();
      const auto doomed = call(session, stalling.url(), std::string(stage == Stage::sending ? largeBody : 1, 'x'));
      auto due = Clock::now() + limit;
      if (byLimit) (void)doomed.waitFor(limit / 2);
      const auto otherStart = Clock::now();
      const auto other = call(session, server.url());
      if (!byLimit) {
        ASSERT_TRUE(stalling.awaitCalls(1));
        ASSERT_TRUE(server.awaitRequests(1));  // then the doomed call has begun, too
        due = Clock::now();
        doomed.cancel();
      }
      EXPECT_EQ(outcomeOf(doomed), byLimit ? timedOut : cancelled);
      EXPECT_GE(Clock::now() - start, least);
      // Newer versions of libcurl send another piece of a body whenever another call wakes libcurl.
      EXPECT_LT(Clock::now() - due, soon() + (stage == Stage::sending ? 2 * limit : 0ms));
      if (!byLimit) server.release();
      EXPECT_EQ(outcomeOf(other), byLimit ? timedOut : "success");
      EXPECT_GE(Clock::now() - otherStart, least);
    }
}

TEST(Cancelling, ReachesTheExchangeThroughEveryChainUntilItHasSettled) {
  ScriptedServer server({json("{}"), {{Step::hold}}});
  HttpApiService service(server.url(), {}, "key");
  const auto same = [](const auto& value) { return value; };
  const auto begin = [&](Unit) { return service.resendValidationEmail("token"); };
  const auto settled = begin({}).map(same);
  EXPECT_EQ(settled.get(), Unit());
  settled.cancel();
  EXPECT_EQ(settled.get(), Unit());
  const PromiseSource<Unit, Error> source;
  const std::vector chains = {begin({}).map(same).mapError(same).map(same), begin({}).flatMap(begin).map(same),
                              Promise<Unit, Error>::resolved({}).flatMap(begin).map(same),
                              source.promise().flatMap(begin)};
  ASSERT_TRUE(server.awaitRequests(4));
  for (const auto& promise : chains) promise.cancel();
  source.resolve({});  // starts a call that is already cancelled
  for (const auto& promise : chains) EXPECT_EQ(outcomeOf(promise), cancelled);
}

TEST(Handlers, RunOneAtATimeInOrderOnTheirQueueHoweverTheCallEnds) {
  for (const auto& queue : queues()) {
    auto* const pool = dynamic_cast<PoolQueue*>(queue.get());
    StallingServer stalling(Stage::waiting, 1);
    HttpApiService service(stalling.url(), {.completionQueue = queue}, "key");
    std::vector calls = {service.resendValidationEmail("token")};
    ASSERT_TRUE(stalling.awaitCalls(1));
    calls.push_back(service.resendValidationEmail("token"));
    calls.push_back(service.resendValidationEmail("not a\ntoken"));
    std::atomic<int> inside = 0, done = 0, wrong = 0;
    std::set<std::thread::id> places;  // needs no mutex: handlers run one at a time
    const auto attach = [&](const Promise<Unit, Error>& promise) {
      const auto last = std::make_shared<int>(0);
      for (int number = 1; number <= 50; ++number) {
        const auto handler = [&, number, last](auto&&...) {
          if (++inside != 1 || ++*last != number || (pool != nullptr && !pool->isHere())) ++wrong;
          places.insert(std::this_thread::get_id());
          --inside;
          ++done;
        };
        if (number % 2 == 0)
          promise.finally(handler);
        else if (number % 3 == 0)
          (void)promise.mapResult([handler](const auto& result) { return handler(), result; });
        else
          promise.then(handler).trap(handler);
      }
    };
    for (const auto& promise : calls) attach(promise);
    calls[0].cancel();
    for (const auto& promise : calls) ASSERT_TRUE(promise.waitFor(20s));
    for (const auto& promise : calls) attach(promise);
    ASSERT_TRUE(eventually([&] { return done == 300; }));
    EXPECT_EQ(wrong, 0);
    if (queue) continue;
    EXPECT_THAT(places, testing::ElementsAre(testing::Ne(std::this_thread::get_id())));
  }
}

TEST(Handlers, MayBlockOnCallsThatEndLaterOnTheSameQueue) {
  for (const std::size_t which : {0UL, 1UL, 2UL}) {
    ScriptedServer server({json("{}")});
    const auto queue = queues()[which];
    HttpApiService service(server.url(), {.completionQueue = queue}, "key");
    HttpApiService other(server.url(), {.completionQueue = queue}, "key");
    std::atomic<int> done = 0;
    const PromiseSource<Unit, Error> later;
    const auto own = service.resendValidationEmail("1");
    std::atomic<bool> isInside = true;
    own.finally([&] {
      done += own.map([](Unit unit) { return unit; }).get() ? 1 : 0;
      const auto sendAgain = [&](Unit) { return service.resendValidationEmail("3").get(); };
      done += service.resendValidationEmail("2").map(sendAgain).get() ? 1 : 0;
      const auto before = ::mallinfo2().uordblks;
      for (int round = 0; round < 10'000; ++round) done += later.promise().waitFor(0ms) ? 1 : 0;
      EXPECT_LT(::mallinfo2().uordblks, before + 100'000);
      done += other.resendValidationEmail("4").waitFor(std::chrono::milliseconds::max()) ? 1 : 0;
      isInside = false;
    });
    own.finally([&] { done += isInside ? 0 : 1; });  // not before the first handler has returned
    const PromiseSource<Unit, Error> fromFirst;
    (void)own.map([&](Unit unit) { return fromFirst.resolve(*service.resendValidationEmail("5").get()), unit; });
    (void)own.map([&](Unit) { return fromFirst.promise().get() && ++done; });  // not before the first has returned
    EXPECT_TRUE(eventually([&] { return done == 5; })) << done << " on queue " << which;
    later.resolve({});
  }
}

TEST(Handlers, RunWithTheNextTaskIfTheQueueDropsOne) {
  ScriptedServer server({json("{}")});
  const auto queue = std::make_shared<LossyQueue>();
  HttpApiService service(server.url(), {.completionQueue = queue}, "key");
  std::atomic<int> done = 0;
  service.resendValidationEmail("1").finally([&] { ++done; });
  ASSERT_TRUE(eventually([&] { return queue->tasks == 1; }));
  service.resendValidationEmail("2").finally([&] { ++done; });
  EXPECT_TRUE(eventually([&] { return done == 2; }));
}

// Makes HALVERNAPI_SOAK_CALLS calls on several threads. Some of them fail, are cancelled, or lose their service.
TEST(Soak, EndsEveryCallAsExpectedAndLeavesNothingBehind) {
  constexpr int workers = 16;
  constexpr long maxGrowth = (slack > 1 ? 512L : 4L) * 1024;  // KiB; a sanitizer keeps freed memory for a long time
  const char* const given = std::getenv("HALVERNAPI_SOAK_CALLS");
  const long calls = given != nullptr ? std::atol(given) : 5'000;
  const auto residentKilobytes = [] {
    long total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
  };
  std::thread([] {}).join();  // a sanitizer may start a thread with the first one of the process
  const ProcessResources before;
  std::atomic<long> next = 0, handlersLeft = 0, cancellations = 0, warm = 0;
  testing::internal::CaptureStdout();  // the library prints bodies there
  {
    Testing::Server server;
    server.start([](const Testing::SeenRequest& request, const std::string&) -> Answer {
      if (request.target == "/lost") return {closing};
      if (request.target == "/slow") return {{Step::pause, {}, 2s * slack}, closing};
      return json("{}");
    });
    const std::string url = "http://127.0.0.1:" + std::to_string(server.port());
    SessionManager shared({.httpMaximumConnectionsPerHost = workers});
    SessionManager impatient({.timeoutIntervalForRequest = 100ms * slack});
    const auto make = [&](long number) {
      const bool isLost = number % 10 == 0, isSlow = number % 50 == 5, isCancelled = number % 10 == 7;
      auto own = number % 500 == 499 ? std::make_unique<SessionManager>(URLSessionConfiguration{}) : nullptr;
      const bool mayBeCancelled = isCancelled || own;
      const auto promise = isLost   ? call(shared, url + "/lost")
                           : isSlow ? call(impatient, url + "/slow")
                                    : call(own ? *own : shared, url + "/", "text");
      handlersLeft += 2;
      promise.finally([&] { --handlersLeft; });
      if (isCancelled) promise.cancel();
      own = nullptr;
      const std::string outcome = outcomeOf(promise);
      promise.finally([&] { --handlersLeft; });
      if (mayBeCancelled && outcome == cancelled)
        ++cancellations;
      else
        EXPECT_EQ(outcome, isLost ? lost : isSlow ? timedOut : "success") << number;
    };
    std::vector<std::jthread> threads;
    for (int worker = 0; worker < workers; ++worker)
      threads.emplace_back([&] {
        for (long number = next++; number < calls; number = next++) {
          if (number == 2000) warm = residentKilobytes();
          make(number);
        }
      });
    threads.clear();
    EXPECT_TRUE(eventually([&] { return handlersLeft == 0; }));
    EXPECT_LT(ProcessResources().descriptors.size(), before.descriptors.size() + 300);
  }
  const long growth = residentKilobytes() - warm;
  const std::string said = testing::internal::GetCapturedStdout();
  if (HasFailure()) std::cerr << said;
  EXPECT_EQ(handlersLeft, 0);
  EXPECT_TRUE(growth <= maxGrowth || warm == 0) << growth;
  EXPECT_GT(cancellations, 0);
  const std::size_t pipes = slack > 1 ? 4 : 0;  // a sanitizer may have opened them for its symbolizer
  EXPECT_TRUE(eventually([&] {
    const ProcessResources now;
    const bool threadsEnded = std::ranges::includes(before.threads, now.threads);
    return threadsEnded && now.descriptors.size() <= before.descriptors.size() + pipes;
  }));
}

}  // namespace
}  // namespace HalvernApi::Tests
