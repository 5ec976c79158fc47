// Tests calls when the system refuses threads, memory or descriptors, and after it was asleep.
#include <dlfcn.h>
#include <openssl/crypto.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <cstring>
#include <ctime>
#include <map>

#include "Support.hpp"

// A sanitizer replaces these functions of the C library itself.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(__clang__)
#define HALVERNAPI_REPLACES_C_FUNCTIONS
#endif

namespace HalvernApi::Tests {
namespace {

#ifdef HALVERNAPI_REPLACES_C_FUNCTIONS
std::atomic<int> threadsToRefuse = 0;
std::atomic<long> allocationsLeft = 0;  // the allocation with this number fails; 0: none
std::atomic<long> secondsAsleep = 0;    // added to CLOCK_BOOTTIME

TEST(System, ThatRefusesAThreadFailsTheCallAndNoMore) {
  ScriptedServer server({json("{}")});
  SessionManager session({});
  for (int place = 1; place <= 2; ++place) {
    threadsToRefuse = 1;
    EXPECT_EQ(outcomeOf(call(session, server.url())), "network NSPOSIXErrorDomain 11");
  }
  EXPECT_EQ(outcomeOf(call(session, server.url())), "success");
  threadsToRefuse = 1000;
  SessionManager other({});
  std::atomic<int> handled = 0;
  const auto failed = call(other, server.url()).finally([&] { ++handled; });
  EXPECT_EQ(outcomeOf(failed), "network NSPOSIXErrorDomain 11");
  EXPECT_EQ(handled, 0);
  threadsToRefuse = 0;
  EXPECT_EQ(outcomeOf(call(other, server.url())), "success");
  EXPECT_TRUE(eventually([&] { return handled == 1; }));
}

TEST(System, ThatWasAsleepHasNewConnections) {
  ScriptedServer server({json("{}")});
  SessionManager session({});
  for (const long asleep : {0, 0, 3600, 3600}) {
    secondsAsleep = asleep;
    EXPECT_EQ(outcomeOf(call(session, server.url())), "success");
    EXPECT_EQ(server.connections(), asleep == 0 ? 1 : 2);
  }
}

// Makes each allocation of a call fail in turn, each in a new process.
TEST(Memory, ThatRunsOutAnywhereEndsACallAndSendsNothingElsewhere) {
  Testing::Server server, unproxied;
  void* const shared = ::mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  auto* const silenced = new (shared) std::atomic<int>(0);  // requests that the server keeps waiting
  const auto handler = [&](const Testing::SeenRequest& request, const std::string&) -> Answer {
    if (request.target.starts_with("/silent")) {
      ++*silenced;
      return {{Step::hold}};
    }
    if (request.target.starts_with("/moved")) return text("HTTP/1.1 307 ?\r\nLocation: /\r\nContent-Length: 0\r\n\r\n");
    return json(R"({"isSuccessful":true,"isEmailConfirmed":true,"accessToken":"a token that takes memory",)"
                R"("refreshToken":"another such token","email":"somebody@example.com"})");
  };
  server.start(handler);
  unproxied.start(handler);
  const auto urlOf = [](const Testing::Server& one) { return "http://127.0.0.1:" + std::to_string(one.port()); };
  (void)HttpApiService(urlOf(server), {}, "key").relogin("a", "b").get();  // prepares OpenSSL; see docs/reliability.md
  // libcurl reports some failures as: no host, no redirect, or, before 8.6, bad headers.
  const std::string noMemory = "network NSPOSIXErrorDomain 12", noThread = "network NSPOSIXErrorDomain 11";
  const std::set<std::string> ofTheSystem = {noMemory, noThread, "network NSURLErrorDomain -1003", invalid, badAnswer};
  const std::vector<std::tuple<std::string, URLSessionConfiguration, std::string>> rows = {
      {urlOf(server), {}, "success"},
      {urlOf(server), {.completionQueue = std::make_shared<InlineQueue>()}, "success"},
      {urlOf(server) + "/moved", {}, "success"},
      {urlOf(unproxied), {.proxyUrl = "http://user:password@" + urlOf(server).substr(7)}, "success"},
      {urlOf(server) + "/silent", {.timeoutIntervalForRequest = 20ms}, timedOut},
      {urlOf(server) + "/silent", {}, cancelled}};
  enum { settled = 40, thrown, notReached, unsettled, wrong, nextFails, signalsBlocked };
  for (const auto& [url, configuration, outcome] : rows) {
    SCOPED_TRACE(url + ' ' + outcome);
    std::map<int, std::vector<long>> allocations;  // the numbers of those that failed, by how the call ended
    for (long allocation = 1; !allocations.contains(notReached); ++allocation) {
      *silenced = 0;
      const int end = statusOfChild([&, url = url, outcome = outcome, configuration = configuration]() -> int {
        int reached = thrown;
        sigset_t before{}, after{};
        pthread_sigmask(SIG_BLOCK, nullptr, &before);
        std::optional<HttpApiService> service;
        std::optional<Promise<AuthenticationResponse, Error>> promise;
        try {
          allocationsLeft = allocation;
          service.emplace(url, configuration, "key");
          promise = service->login("a", "b", "c", "d");
          while (outcome == cancelled && *silenced == 0 && !promise->waitFor(1ms)) {
          }
          if (outcome == cancelled) promise->cancel();
          if (!promise->waitFor(10s)) return unsettled;
          reached = allocationsLeft > 0 ? notReached : settled;
        } catch (const std::bad_alloc&) {
        }
        allocationsLeft = 0;
        pthread_sigmask(SIG_BLOCK, nullptr, &after);
        if (std::memcmp(&before, &after, sizeof before) != 0) return signalsBlocked;
        const std::string came = promise ? outcomeOf(*promise) : noMemory;
        if (came != outcome && !ofTheSystem.contains(came)) return wrong;
        const bool next = !service || outcomeOf(call(*service->manager(), urlOf(server))) == "success";
        return next || !configuration.proxyUrl.value_or("").empty() || outcome == timedOut ? reached : nextFails;
      });
      allocations[end].push_back(allocation);
    }
    EXPECT_GT(allocations[settled].size(), 50);
    EXPECT_THAT(allocations, testing::Each(testing::Key(testing::AnyOf(settled, thrown, notReached))));
  }
  EXPECT_EQ(unproxied.connections(), 0);
}
#endif

TEST(System, ThatHasNoDescriptorsLeftCostsNoProcessorTime) {
  if (slack > 1) GTEST_SKIP() << "a sanitizer needs descriptors to look at memory";
  ScriptedServer server({heldAnswer});
  SessionManager session({}), unused({});
  const auto pending = call(session, server.url());
  ASSERT_TRUE(server.awaitRequests(1));
  boost::asio::io_context context;
  boost::asio::ip::tcp::socket client(context, boost::asio::ip::tcp::v4());
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const std::clock_t busy = std::clock();
  // The server cannot accept this connection yet.
  client.connect({boost::asio::ip::address_v4::loopback(), static_cast<in_port_t>(server.port())});
  const auto another = call(session, server.url());  // wakes the I/O thread
  EXPECT_EQ(outcomeOf(call(unused, server.url())), "network NSPOSIXErrorDomain 24");
  EXPECT_FALSE(pending.waitFor(500ms));
  EXPECT_LT(std::clock() - busy, CLOCKS_PER_SEC / 50);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  server.release();
  EXPECT_EQ(outcomeOf(another), refused);
  EXPECT_EQ(outcomeOf(call(unused, server.url())), "success");
  boost::asio::write(client, boost::asio::buffer(std::string("GET / HTTP/1.1\r\n\r\n")));
  EXPECT_TRUE(server.awaitRequests(3));
  EXPECT_EQ(outcomeOf(pending), "success");
}

}  // namespace
}  // namespace HalvernApi::Tests

#ifdef HALVERNAPI_REPLACES_C_FUNCTIONS
// Replace functions of the C library, for the library under test.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                              void* argument) {
  static auto* const original = reinterpret_cast<decltype(&pthread_create)>(::dlsym(RTLD_NEXT, "pthread_create"));
  if (HalvernApi::Tests::threadsToRefuse > 0 && HalvernApi::Tests::threadsToRefuse-- > 0) return EAGAIN;
  return original(thread, attributes, run, argument);
}

extern "C" int clock_gettime(clockid_t clock, timespec* now) {
  const auto failed = ::syscall(SYS_clock_gettime, clock, now);
  if (clock == CLOCK_BOOTTIME) now->tv_sec += HalvernApi::Tests::secondsAsleep;
  return static_cast<int>(failed);
}

extern "C" void* __libc_malloc(std::size_t);
extern "C" void* __libc_calloc(std::size_t, std::size_t);
extern "C" void* __libc_realloc(void*, std::size_t);
static bool fails() { return HalvernApi::Tests::allocationsLeft > 0 && --HalvernApi::Tests::allocationsLeft == 0; }
extern "C" void* malloc(std::size_t size) { return fails() ? nullptr : __libc_malloc(size); }
extern "C" void* calloc(std::size_t count, std::size_t size) { return fails() ? nullptr : __libc_calloc(count, size); }
extern "C" void* realloc(void* old, std::size_t size) { return fails() ? nullptr : __libc_realloc(old, size); }
#endif
