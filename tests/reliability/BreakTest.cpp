// What an attempt to break the library found: memory that is gone, answers that belong to another call, requests that
// arrive twice, deep chains, the system refusing what is asked of it, and the process ending meanwhile.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstring>
#include <ctime>
#include <map>

#include "Support.hpp"

// A sanitizer takes the place of the C library's functions itself.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(__clang__)
#define HALVERNAPI_TAKES_THE_PLACE_OF_C
#endif

namespace HalvernApi::Tests {
namespace {

using Number = Promise<int, std::string>;
using Source = PromiseSource<int, std::string>;

[[maybe_unused]] std::atomic<int> threadsToRefuse = 0;
std::atomic<int> exitHandlers = 0;
[[maybe_unused]] std::atomic<long> allocationsLeft = 0;  // until one fails; 0: none does

const Step closing{Step::close};

// A listener that nobody accepts from: connections are made, and nothing is read from them.
class DeafServer {
 public:
  DeafServer() {
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_, generic, size) != 0 || ::listen(listener_, 8) != 0 ||
        ::getsockname(listener_, generic, &size) != 0)
      throw std::runtime_error("no port of loopback");
    url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  }
  ~DeafServer() { ::close(listener_); }
  std::string url;

 private:
  const int listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

TEST(LargeBodies, MayBeOnTheirWayHoweverTheCallEnds) {
  DeafServer server;
  const std::string body(8 << 20, 'x');
  for (int round = 0; round < 5; ++round) {
    auto patient = std::make_unique<SessionManager>(URLSessionConfiguration{});
    SessionManager impatient({.timeoutIntervalForRequest = 50ms});
    const auto cancelledCall = call(*patient, server.url, body), destroyedCall = call(*patient, server.url, body);
    const auto limitedCall = call(impatient, server.url, body);
    EXPECT_EQ(outcomeOf(limitedCall), timedOut);
    cancelledCall.cancel();
    EXPECT_EQ(outcomeOf(cancelledCall), cancelled);
    patient.reset();
    EXPECT_EQ(outcomeOf(destroyedCall), cancelled);
  }
}

TEST(Connections, OnWhichSomethingArrivesWhileIdleAreNotUsedAgain) {
  const Authority authority;
  const std::string planted = json(R"({"result":true})")[0].bytes;
  for (const bool secure : {false, true})
    for (const std::string& bytes :
         {std::string("HTTP/1.1 408 Request Timeout\r\nContent-Length: 0\r\n\r\n"), planted}) {
      ScriptedServer server({{json(R"({"result":false})")[0], {Step::pause, {}, 5ms}, {Step::send, bytes}, closing}},
                            secure ? authority.channels() : nullptr);
      HttpApiService service((secure ? "https://" : "http://") + server.authority(),
                             {.certificateAuthorityFile = authority.file()}, "key");
      for (int number = 1; number <= 10; ++number) {
        EXPECT_EQ(service.checkIfValidated("token").get(), ValidatedEmailResponse(false)) << secure << bytes;
        ASSERT_TRUE(server.awaitClosed(number));
      }
      EXPECT_EQ(server.connections(), 10);
    }
}

TEST(Requests, ThatAServerMayHaveSeenAreNotSentAgain) {
  std::vector<Answer> answers(6, {{Step::hold}, json("{}")[0]});
  answers.push_back({closing});
  ScriptedServer server(answers);
  SessionManager session({});
  std::vector<Promise<Unit, Error>> calls;
  for (int number = 0; number < 6; ++number) calls.push_back(call(session, server.url()));
  ASSERT_TRUE(server.awaitRequests(6));
  server.release();
  for (const auto& promise : calls) EXPECT_EQ(outcomeOf(promise), "success");
  for (std::size_t sent = 7; sent <= 9; ++sent) {  // each over a connection that was kept
    EXPECT_EQ(outcomeOf(call(session, server.url(), "once")), lost);
    EXPECT_EQ(server.requests().size(), sent);
  }
  EXPECT_EQ(server.connections(), 6);
}

TEST(Depth, CostsNoStack) {
  constexpr int depth = 200'000;
  const auto same = [](int value) { return value; };
  const Source source;
  Number mapped = source.promise(), nested = source.promise();
  for (int level = 0; level < depth; ++level) {
    mapped = mapped.map(same);
    nested = Number::resolved(0).flatMap([inner = nested](int) { return inner; });
  }
  nested.cancel();
  source.resolve(7);
  EXPECT_EQ(mapped.get(), 7);
  EXPECT_EQ(nested.get(), 7);
  boost::intrusive_ptr<Number::State> state(new Number::State(nullptr));
  Number unsettled(state);
  for (int level = 0; level < depth; ++level) unsettled = unsettled.map(same);
}

struct Waiting {
  struct promise_type {
    Waiting get_return_object() { return {std::coroutine_handle<promise_type>::from_promise(*this)}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { std::terminate(); }
  };
  std::coroutine_handle<> handle;
};

TEST(Coroutines, ThatAreDestroyedWhileTheyWaitAreNotResumed) {
  const Source source;
  bool resumed = false;
  const auto wait = [](Number promise, bool& reached) -> Waiting {
    (void)co_await promise;
    reached = true;
  };
  wait(source.promise(), resumed).handle.destroy();
  source.resolve(1);
  EXPECT_EQ(source.promise().map([](int value) { return value; }).get(), 1);  // behind the coroutine's turn
  EXPECT_FALSE(resumed);
}

TEST(Proxies, ThatCannotBeReadFailEveryCallBeforeALookUp) {
  for (const char* proxy :
       {"", "http://", "http://[::1", "ftp://127.0.0.1:1", "http://a b", "http://no.such.example:x"}) {
    SessionManager session({.proxyUrl = proxy});
    EXPECT_EQ(outcomeOf(call(session, "http://no.such.example")), "network NSURLErrorDomain -1000") << proxy;
  }
}

TEST(Descriptors, OfConnectionsAreClosedInProgramsThatAreExecuted) {
  const Holdings before;
  Trap trap(Stage::waiting, 2);
  SessionManager session({});
  const auto first = call(session, trap.url()), second = call(session, trap.url());
  ASSERT_TRUE(trap.holds(2));
  int sockets = 0;
  for (const std::string& name : Holdings().descriptors) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    const int descriptor = std::stoi(name);
    if (before.descriptors.count(name) != 0 ||
        ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0 || address.ss_family != AF_INET)
      continue;
    EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
    ++sockets;
  }
  EXPECT_GE(sockets, 4);
}

TEST(System, ThatRefusesAThreadFailsTheCallAndNoMore) {
  if (slack > 1) GTEST_SKIP() << "a sanitizer starts threads in its own way";
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

#ifndef HALVERNAPI_TAKES_THE_PLACE_OF_C
TEST(Memory, ThatRunsOutAnywhereHangsNoCallAndKeepsNoSignalBlocked) { GTEST_SKIP() << "a sanitizer allocates itself"; }
#else
// One allocation of a call after the other fails, each in a process of its own.
TEST(Memory, ThatRunsOutAnywhereHangsNoCallAndKeepsNoSignalBlocked) {
  ScriptedServer server(
      {json(R"({"isSuccessful":true,"isEmailConfirmed":true,"accessToken":"a token that takes memory",)"
            R"("refreshToken":"another such token","email":"somebody@example.com"})")});
  enum { settled = 40, thrown, unsettled, signalsBlocked, notReached };
  std::map<int, int> ends;
  for (long allocation = 1; ends[notReached] == 0; ++allocation) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::alarm(30);
      // From 3.2 on OpenSSL waits for itself when its very first set-up finds no memory; see docs/reliability.md.
      if (OpenSSL_version_num() >= 0x30200000UL) OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
      int end = unsettled;
      sigset_t before{}, after{};
      pthread_sigmask(SIG_BLOCK, nullptr, &before);
      try {
        allocationsLeft = allocation;
        HttpApiService service(server.url(), {.timeoutIntervalForRequest = 20s}, "key");
        if (service.login("a", "b", "c", "d").waitFor(10s)) end = allocationsLeft > 0 ? notReached : settled;
      } catch (const std::bad_alloc&) {
        end = thrown;
      }
      allocationsLeft = 0;
      pthread_sigmask(SIG_BLOCK, nullptr, &after);
      std::_Exit(std::memcmp(&before, &after, sizeof before) != 0 ? signalsBlocked : end);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ++ends[WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status)];
    ASSERT_EQ(ends[unsettled] + ends[signalsBlocked] + ends[-SIGALRM] + ends[-SIGSEGV], 0)
        << "allocation " << allocation;
  }
  EXPECT_GT(ends[settled], 1000);
  EXPECT_LE(ends[-SIGABRT], 8);  // where the C library itself gives up, or its C++ companion
  EXPECT_EQ(ends.size(), 8) << "another end";
}
#endif

// What a process comes to that does this: its exit status, or a signal.
template <class F>
void expectExit(F inChild) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT((::alarm(60), inChild()), testing::ExitedWithCode(0), "");
}

TEST(System, ThatHasNoDescriptorsLeftCostsNoProcessorTime) {
  if (slack > 1) GTEST_SKIP() << "a sanitizer needs descriptors to look at memory";
  expectExit([] {
    ScriptedServer server({{{Step::hold}, json("{}")[0]}});
    SessionManager session({});
    const auto pending = call(session, server.url());
    if (!server.awaitRequests(1)) std::_Exit(1);
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{0, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const std::clock_t busy = std::clock();
    const auto another = call(session, server.url());  // has the I/O thread look around
    const bool early = pending.waitFor(500ms);
    const bool idle = std::clock() - busy < CLOCKS_PER_SEC / 5;
    setrlimit(RLIMIT_NOFILE, &before);
    server.release();
    if (early || !idle || outcomeOf(another) != refused) std::_Exit(2);
    std::_Exit(outcomeOf(pending) == "success" ? 0 : 3);
  });
}

TEST(Forking, LeavesPromisesWithoutASessionOfUse) {
  EXPECT_EQ(Number::resolved(1).map([](int n) { return n + 1; }).get(), 2);
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(30);
    std::_Exit(Number::resolved(1).map([](int n) { return n + 1; }).get().value());
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << status;
}

TEST(ProcessExit, IsAskedForOnceHoweverManySessionsThereAre) {
  const auto useOne = [] {
    SessionManager session({});
    EXPECT_EQ(outcomeOf(call(session, "http://127.0.0.1:1")), refused);
  };
  useOne();
  const int before = exitHandlers;
  for (int number = 0; number < 20; ++number) useOne();
  EXPECT_EQ(exitHandlers, before);
}

TEST(ProcessExit, CancelsCallsBegunAfterIt) {
  expectExit([] {
    static ScriptedServer& server = *new ScriptedServer({json("{}")});
    static HttpApiService& service = *new HttpApiService(server.url(), {}, "key");
    static const struct Late {
      ~Late() {
        std::vector<std::thread> threads;
        for (int number = 0; number < 4; ++number)
          threads.emplace_back([] {
            for (int round = 0; round < 50; ++round) {
              const auto promise = service.resendValidationEmail("token").map([](Unit unit) { return unit; });
              if (!promise.waitFor(20s) || outcomeOf(promise) != cancelled) std::_Exit(3);
            }
          });
        for (std::thread& thread : threads) thread.join();
      }
    } late;
    if (outcomeOf(service.resendValidationEmail("token")) != "success") std::_Exit(4);
    std::thread([] {
      for (;;) (void)service.resendValidationEmail("token").get();
    }).detach();
    std::exit(0);
  });
}

TEST(ProcessExit, LetsNoHandlerBeginWhileAnotherBlocks) {
  expectExit([] {
    static Trap& trap = *new Trap(Stage::waiting, 2);
    static HttpApiService& service = *new HttpApiService(trap.url(), {}, "key");
    static std::atomic<bool> blocks = false;
    service.resendValidationEmail("not a\ntoken").finally([] {
      blocks = true;
      (void)service.resendValidationEmail("token").get();
    });
    service.resendValidationEmail("token").finally([] { std::_Exit(3); });
    if (!eventually([] { return blocks.load(); }) || !trap.holds(2)) std::_Exit(4);
    std::exit(0);
  });
}

TEST(ProcessExit, LeavesNothingForALeakCheckerToFind) {
  expectExit([] {
    const Authority authority;
    auto server = std::make_unique<ScriptedServer>(std::vector<Answer>{json("{}")}, authority.channels());
    static HttpApiService service("https://" + server->authority(), {.certificateAuthorityFile = authority.file()},
                                  "key");
    if (outcomeOf(service.resendValidationEmail("token")) != "success") std::_Exit(4);
    server.reset();  // its thread would use OpenSSL while that goes
    std::exit(0);    // where a leak checker looks
  });
}

}  // namespace
}  // namespace HalvernApi::Tests

// These take the place of the C library's for the library under test.
extern "C" int __cxa_atexit(void (*)(void*), void*, void*) noexcept;
extern "C" int atexit(void (*handler)()) noexcept {
  ++HalvernApi::Tests::exitHandlers;
  return __cxa_atexit(reinterpret_cast<void (*)(void*)>(handler), nullptr, nullptr);
}

#ifdef HALVERNAPI_TAKES_THE_PLACE_OF_C
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                              void* argument) {
  using Function = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto original = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "pthread_create"));
  if (HalvernApi::Tests::threadsToRefuse > 0 && HalvernApi::Tests::threadsToRefuse-- > 0) return EAGAIN;
  return original(thread, attributes, run, argument);
}

extern "C" void* __libc_malloc(std::size_t);
extern "C" void* __libc_calloc(std::size_t, std::size_t);
extern "C" void* __libc_realloc(void*, std::size_t);
static bool fails() { return HalvernApi::Tests::allocationsLeft > 0 && --HalvernApi::Tests::allocationsLeft == 0; }
extern "C" void* malloc(std::size_t size) { return fails() ? nullptr : __libc_malloc(size); }
extern "C" void* calloc(std::size_t count, std::size_t size) { return fails() ? nullptr : __libc_calloc(count, size); }
extern "C" void* realloc(void* old, std::size_t size) { return fails() ? nullptr : __libc_realloc(old, size); }
#endif
