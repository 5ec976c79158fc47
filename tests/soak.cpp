// HalvernApiSoak [CALLS]: makes that many calls of the sandbox, one in ten of which goes wrong, and checks that each
// ends as it has to, and that neither memory (from the 2,000th call on), descriptors nor threads grow. Its exit status
// says so.
#include <fstream>
#include <iostream>

#include "HalvernApi/Testing/Sandbox.hpp"
#include "reliability/Support.hpp"

using namespace HalvernApi;
using namespace HalvernApi::Tests;
using Testing::Operation;

namespace {

constexpr int workers = 16;
constexpr long batch = 1000;  // calls, after which the sandbox forgets what it has seen
// A sanitizer keeps freed memory for long.
constexpr long mostGrowth = (slack > 1 ? 512L : 4L) * 1024;

long residentKilobytes() {
  long total = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

class Soak {
 public:
  // What call `number` came to, and what it has to.
  std::pair<std::string, std::string> make(long number) {
    const auto cancelledCall = [this] {
      const auto promise = service_.profile({}, token_);
      promise.cancel();
      return promise;
    };
    switch (number % 50) {
      case 0: return {outcomeOf(service_.authenticate("token", "id", "name")), lost};
      case 10: return {outcomeOf(impatient_.resendValidationEmail(token_)), timedOut};
      case 20: return {outcomeOf(service_.relogin("token", "id")), "unknownNSError Alamofire.AFError 3"};
      case 30: return {outcomeOf(service_.checkIfValidated(token_)), "unknownJsonData"};
      case 40: return {outcomeOf(cancelledCall()), cancelled};
      default: break;
    }
    const auto left = DeviceOrientation::left;
    switch (number % 5) {
      case 0: return {outcomeOf(service_.sendPasswordReset("a@b.c")), "success"};
      case 1: return {outcomeOf(service_.update(std::chrono::sys_days(), Sex::female, token_)), "success"};
      case 2: return {outcomeOf(service_.registerDevice("id", "Aid", "s", "1", "2", "t", left, token_)), "success"};
      case 3: return {outcomeOf(service_.login("b@c.d", "password", "id", "name")), "success"};
      default: return {outcomeOf(service_.profile({{left, "s", "t", {{1000, 35.5}}}}, token_)), "success"};
    }
  }

  void makeAll(long first, long last) {
    sandbox_.reset();
    const auto always = Testing::Script::always;
    sandbox_.script(Operation::authenticate, {.drop = true, .calls = always});
    sandbox_.script(Operation::resendValidationEmail, {.delay = 200ms * slack, .calls = always});
    sandbox_.script(Operation::relogin, {.answer = Testing::Answer{.status = 500}, .calls = always});
    sandbox_.script(Operation::checkIfValidated, {.answer = Testing::Answer{.body = "[]"}, .calls = always});
    std::atomic<long> next = first;
    std::vector<std::thread> threads;
    for (int worker = 0; worker < workers; ++worker)
      threads.emplace_back([&] {
        for (long number = next++; number < last; number = next++) {
          const auto [outcome, wanted] = make(number);
          // A call may be faster than its cancellation.
          if (outcome == wanted || (wanted == cancelled && outcome == "success")) continue;
          if (++wrong <= 10) std::cerr << "call " + std::to_string(number) + " came to " + outcome + '\n';
        }
      });
    for (std::thread& thread : threads) thread.join();
  }

  std::atomic<long> wrong = 0;

 private:
  Testing::Sandbox sandbox_;
  HttpApiService service_{sandbox_.baseUrl(), {.httpMaximumConnectionsPerHost = workers}, sandbox_.apiKey()};
  HttpApiService impatient_{sandbox_.baseUrl(), {.timeoutIntervalForRequest = 100ms * slack}, sandbox_.apiKey()};
  const std::string token_ = [this] {
    sandbox_.addAccount("a@b.c", "password");
    sandbox_.addAccount("b@c.d", "password");  // whose sign-ins do not push out the one that all the other calls use
    return service_.login("a@b.c", "password", "id", "name").get().value().accessToken();
  }();
};

}  // namespace

int main(int count, char** arguments) {
  const long calls = count > 1 ? std::atol(arguments[1]) : 200'000;
  // The library prints the bodies of answers there.
  if (calls <= 0 || std::freopen("/dev/null", "w", stdout) == nullptr) return 2;
  const auto start = Clock::now();
  std::thread([] {}).join();  // a sanitizer may add one of its own to the first
  const Holdings before;
  auto soak = std::make_unique<Soak>();
  long warm = 0;
  for (long made = 0; made < calls; made += batch) {
    if (made == std::max(calls / 5000, 2L) * batch) warm = residentKilobytes();
    soak->makeAll(made, std::min(made + batch, calls));
    if (isatty(STDERR_FILENO) != 0) std::cerr << '\r' << made << " of " << calls << " calls" << std::flush;
  }
  const long growth = warm == 0 ? 0 : residentKilobytes() - warm;
  const long wrong = soak->wrong;
  soak.reset();
  const std::size_t pipes = slack > 1 ? 4 : 0;  // which a sanitizer may have opened, to tell names
  const bool released = eventually([&] {
    const Holdings now;
    return now.descriptors.size() <= before.descriptors.size() + pipes && now.threads.size() == before.threads.size();
  });
  std::cerr << '\r' << calls << " calls in " << (Clock::now() - start) / 1s << " s, " << wrong
            << " of which ended as they must not; "
            << "memory grew by " << growth << " KiB, of at most " << mostGrowth << "; descriptors and threads are "
            << (released ? "as before" : "left behind") << '\n';
  return wrong == 0 && released && growth <= mostGrowth ? 0 : 1;
}
