// What becomes of calls when the system refuses what is asked of it: threads, memory, descriptors.
#include <dlfcn.h>
#include <openssl/crypto.h>
#include <sys/resource.h>

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

#ifdef HALVERNAPI_TAKES_THE_PLACE_OF_C
std::atomic<int> threadsToRefuse = 0;
std::atomic<long> allocationsLeft = 0;  // until one fails; 0: none does

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

// One allocation of a call after the other fails, each in a process of its own.
TEST(Memory, ThatRunsOutAnywhereHangsNoCallAndKeepsNoSignalBlocked) {
  ScriptedServer server(
      {json(R"({"isSuccessful":true,"isEmailConfirmed":true,"accessToken":"a token that takes memory",)"
            R"("refreshToken":"another such token","email":"somebody@example.com"})")});
  enum { settled = 40, thrown, unsettled, signalsBlocked, notReached };
  std::map<int, int> ends;
  for (long allocation = 1; ends[notReached] == 0; ++allocation) {
    ++ends[statusOfChild([&] {
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
      return std::memcmp(&before, &after, sizeof before) != 0 ? int{signalsBlocked} : end;
    })];
    ASSERT_EQ(ends[unsettled] + ends[signalsBlocked] + ends[-SIGALRM] + ends[-SIGSEGV], 0)
        << "allocation " << allocation;
  }
  EXPECT_GT(ends[settled], 1000);
  EXPECT_LE(ends[-SIGABRT], 8);  // where the C library itself gives up, or its C++ companion
  EXPECT_EQ(ends.size(), 8) << "another end";
}
#endif

TEST(System, ThatHasNoDescriptorsLeftCostsNoProcessorTime) {
  if (slack > 1) GTEST_SKIP() << "a sanitizer needs descriptors to look at memory";
  expectCleanExit([] {
    ScriptedServer server({heldAnswer});
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
    const bool idle = std::clock() - busy < CLOCKS_PER_SEC / 50;
    setrlimit(RLIMIT_NOFILE, &before);
    server.release();
    if (early || !idle || outcomeOf(another) != refused) std::_Exit(2);
    std::_Exit(outcomeOf(pending) == "success" ? 0 : 3);
  });
}

}  // namespace
}  // namespace HalvernApi::Tests

#ifdef HALVERNAPI_TAKES_THE_PLACE_OF_C
// These take the place of the C library's for the library under test.
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
