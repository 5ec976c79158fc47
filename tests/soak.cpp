// HalvernApiSoak [CALLS]: makes that many calls, many at once. Some go wrong, some are cancelled, and now and then a
// service goes under its call. Checks that each ends as it has to and runs its handlers once, and that
// neither memory (from the 2,000th call on), descriptors nor threads grow. Its exit status says so.
#include <fstream>
#include <iostream>

#include "Support.hpp"

using namespace HalvernApi;
using namespace HalvernApi::Tests;

namespace {

constexpr int workers = 16;
// KiB. A sanitizer keeps freed memory for long.
constexpr long maxGrowth = (slack > 1 ? 512L : 4L) * 1024;

long residentKilobytes() {
  long total = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

Answer answerTo(const Testing::SeenRequest& request, const std::string&) {
  if (request.target.ends_with("/authenticate-with-facebook")) return {closing};
  if (request.target.ends_with("/resend-confirmation-email")) return {{Step::pause, {}, 2s * slack}, closing};
  if (request.target.ends_with("/re-login")) return http(500, "", "");
  return json(R"({"isSuccessful":true,"isEmailConfirmed":true,"accessToken":"a","refreshToken":"r","email":"e"})");
}

// A call, and what it has to come to.
std::pair<Promise<Unit, Error>, std::string> begin(long number, HttpApiService& service, HttpApiService& impatient) {
  const auto done = [](const auto&) { return Unit(); };
  switch (number % 50) {
    case 0: return {service.authenticate("token", "id", "name").map(done), lost};
    case 10: return {impatient.resendValidationEmail("token"), timedOut};
    case 20: return {service.relogin("token", "id").map(done), invalid};
    case 30: return {service.checkIfValidated("token").map(done), "unknownJsonData"};
    default: break;
  }
  if (number % 2 == 0) return {service.update(std::chrono::sys_days(), Sex::female, "token"), "success"};
  return {service.login("a@b.c", "password", "id", "name").map(done), "success"};
}

}  // namespace

int main(int count, char** arguments) {
  const long calls = count > 1 ? std::atol(arguments[1]) : 200'000;
  // The library prints the bodies of answers there.
  if (calls <= 0 || std::freopen("/dev/null", "w", stdout) == nullptr) return 2;
  std::thread([] {}).join();  // a sanitizer may add one of its own to the first
  const Holdings before;
  std::atomic<long> next = 0, wrong = 0, cancellations = 0, handlersLeft = 0, warm = 0;
  {
    Testing::Server server;
    server.start(answerTo);
    const std::string url = "http://127.0.0.1:" + std::to_string(server.port());
    HttpApiService shared(url, {.httpMaximumConnectionsPerHost = workers}, "");
    HttpApiService impatient(url, {.timeoutIntervalForRequest = 100ms * slack}, "");
    const auto make = [&](long number) {
      auto doomed =
          number % 500 == 499 ? std::make_unique<HttpApiService>(url, URLSessionConfiguration{}, "") : nullptr;
      const bool mayBeCancelled = doomed || number % 10 == 7;
      const auto [promise, wanted] = begin(number, doomed ? *doomed : shared, impatient);
      const auto attach = [&, &promise = promise] {
        ++handlersLeft;
        promise.finally([&, ran = std::make_shared<std::atomic<bool>>(false)] {
          if (ran->exchange(true)) ++wrong;
          --handlersLeft;
        });
      };
      attach();
      if (number % 10 == 7) promise.cancel();
      doomed = nullptr;
      const std::string outcome = outcomeOf(promise);
      attach();
      if (outcome == cancelled && mayBeCancelled)
        ++cancellations;
      else if (outcome != wanted && ++wrong <= 10)
        std::cerr << "call " + std::to_string(number) + ": " + outcome + '\n';
    };
    std::vector<std::thread> threads;
    for (int worker = 0; worker < workers; ++worker)
      threads.emplace_back([&] {
        for (long number = next++; number < calls; number = next++) {
          if (number == 2000) warm = residentKilobytes();
          make(number);
        }
      });
    for (std::thread& thread : threads) thread.join();
    if (!eventually([&] { return handlersLeft == 0; })) ++wrong;
  }
  const long growth = warm == 0 ? 0 : residentKilobytes() - warm;
  const std::size_t pipes = slack > 1 ? 4 : 0;  // which a sanitizer may have opened, to tell names
  const bool released = eventually([&] {
    const Holdings now;
    return now.descriptors.size() <= before.descriptors.size() + pipes && now.threads.size() == before.threads.size();
  });
  std::cerr << calls << " calls, " << cancellations << " of them cancelled, " << wrong
            << " ended as they must not, or their handlers did not; memory grew by " << growth << " KiB, of at most "
            << maxGrowth << "; descriptors and threads are " << (released ? "as before" : "left behind") << '\n';
  return wrong == 0 && cancellations > 0 && released && growth <= maxGrowth ? 0 : 1;
}
