// HalvernApiSoak [CALLS]: makes that many calls of the sandbox, many at once. Some go wrong, some are cancelled, and
// now and then the service goes under calls that are pending. Checks that each ends as it has to and runs its handlers
// once, and that neither memory (from the 2,000th call on), descriptors nor threads grow. Its exit status says so.
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
constexpr long maxGrowth = (slack > 1 ? 512L : 4L) * 1024;

long residentKilobytes() {
  long total = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

class Soak {
 public:
  void makeCalls(long first, long last) {
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
        for (long number = next++; number < last; number = next++) make(number);
      });
    for (std::thread& thread : threads) thread.join();
  }
  bool allHandlersRan() const {
    return eventually([this] { return handlersLeft_ == 0; });
  }

  std::atomic<long> wrong = 0, cancellations = 0;

 private:
  void make(long number) {
    std::unique_lock lock(mutex_);
    if (number % 500 == 499) ++services_, service_ = makeService();
    const long services = services_;
    auto service = service_;
    lock.unlock();
    const auto [promise, wanted] = begin(number, *service);
    service = nullptr;
    const auto attach = [this, &promise = promise] {
      ++handlersLeft_;
      promise.finally([this, ran = std::make_shared<std::atomic<bool>>(false)] {
        if (ran->exchange(true)) ++wrong;
        --handlersLeft_;
      });
    };
    attach();
    const bool isCancelled = number % 10 == 7;
    if (isCancelled) promise.cancel();
    const std::string outcome = outcomeOf(promise);
    attach();
    if (outcome == cancelled && (isCancelled || services != services_))
      ++cancellations;
    else if (outcome != wanted && ++wrong <= 10)
      std::cerr << "call " + std::to_string(number) + ": " + outcome + '\n';
  }

  // A call, and what it has to come to.
  std::pair<Promise<Unit, Error>, std::string> begin(long number, HttpApiService& service) {
    const auto left = DeviceOrientation::left;
    const auto done = [](const auto&) { return Unit(); };
    switch (number % 50) {
      case 0: return {service.authenticate("token", "id", "name").map(done), lost};
      case 10: return {impatient_.resendValidationEmail(token_), timedOut};
      case 20: return {service.relogin("token", "id").map(done), "unknownNSError Alamofire.AFError 3"};
      case 30: return {service.checkIfValidated(token_).map(done), "unknownJsonData"};
      default: break;
    }
    switch (number % 5) {
      case 0: return {service.sendPasswordReset("a@b.c").map(done), "success"};
      case 1: return {service.update(std::chrono::sys_days(), Sex::female, token_), "success"};
      case 2: return {service.registerDevice("id", "Aid", "s", "1", "2", "t", left, token_), "success"};
      case 3: return {service.login("b@c.d", "password", "id", "name").map(done), "success"};
      default: return {service.profile({{left, "s", "t", {{1000, 35.5}}}}, token_).map(done), "success"};
    }
  }

  std::shared_ptr<HttpApiService> makeService() const {
    const URLSessionConfiguration configuration{.httpMaximumConnectionsPerHost = workers};
    return std::make_shared<HttpApiService>(sandbox_.baseUrl(), configuration, sandbox_.apiKey());
  }

  Testing::Sandbox sandbox_;
  std::mutex mutex_;
  std::shared_ptr<HttpApiService> service_ = makeService();  // under mutex_
  std::atomic<long> services_ = 1, handlersLeft_ = 0;
  HttpApiService impatient_{sandbox_.baseUrl(), {.timeoutIntervalForRequest = 100ms * slack}, sandbox_.apiKey()};
  const std::string token_ = [this] {
    sandbox_.addAccount("a@b.c", "password");
    sandbox_.addAccount("b@c.d", "password");  // whose sign-ins do not push out the one that all the other calls use
    return service_->login("a@b.c", "password", "id", "name").get().value().accessToken();
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
    soak->makeCalls(made, std::min(made + batch, calls));
    if (isatty(STDERR_FILENO) != 0) std::cerr << '\r' << made << " of " << calls << " calls" << std::flush;
  }
  const long growth = warm == 0 ? 0 : residentKilobytes() - warm;
  const bool settled = soak->allHandlersRan();
  const long wrong = soak->wrong, cancellations = soak->cancellations;
  soak.reset();
  const std::size_t pipes = slack > 1 ? 4 : 0;  // which a sanitizer may have opened, to tell names
  const bool released = eventually([&] {
    const Holdings now;
    return now.descriptors.size() <= before.descriptors.size() + pipes && now.threads.size() == before.threads.size();
  });
  std::cerr << '\r' << calls << " calls in " << (Clock::now() - start) / 1s << " s, " << cancellations
            << " of them cancelled, " << wrong << " ended as they must not; handlers are " << (settled ? "done" : "due")
            << "; memory grew by " << growth << " KiB, of at most " << maxGrowth << "; descriptors and threads are "
            << (released ? "as before" : "left behind") << '\n';
  return wrong == 0 && cancellations > 0 && settled && released && growth <= maxGrowth ? 0 : 1;
}
