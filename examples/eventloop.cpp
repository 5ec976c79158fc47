// Signs in and prints whether the e-mail address has been confirmed. The completion queue is the main loop of the
// application: all handlers run there, so no locks are needed. Ctrl-C cancels the call.
//
//   API_KEY=... PASSWORD=... eventloop BASE-URL EMAIL
//
// Exit status: 0 answered, 1 not answered, 2 wrong usage.
#include <unistd.h>
#include <HalvernApi/HalvernApi.hpp>

#include <boost/asio.hpp>
#include <cstdio>
#include <cstdlib>
#include <iostream>

using namespace HalvernApi;
namespace asio = boost::asio;

namespace {

// [queue]
class MainLoop final : public DispatchQueue {
 public:
  explicit MainLoop(asio::io_context& loop) : loop_(loop) {}
  void async(std::function<void()> task) override { asio::post(loop_, std::move(task)); }

 private:
  asio::io_context& loop_;
};
// [queue]

// [stdout]
// Returns a stream to standard output that only the application uses. All other output to `stdout` is discarded: the
// library prints the body of every answer there, including tokens. Returns null on failure.
std::FILE* takeStandardOutput() {
  std::FILE* const own = fdopen(dup(STDOUT_FILENO), "w");
  return std::freopen("/dev/null", "w", stdout) != nullptr ? own : nullptr;
}
// [stdout]

}  // namespace

int main(int argc, char** argv) {
  const char* const apiKey = std::getenv("API_KEY");
  const char* const password = std::getenv("PASSWORD");
  if (argc != 3 || apiKey == nullptr || password == nullptr) {
    std::cerr << "usage: API_KEY=... PASSWORD=... eventloop BASE-URL EMAIL\n";
    return 2;
  }
  std::FILE* const out = takeStandardOutput();
  if (out == nullptr) return 1;

  asio::io_context loop;  // first, so that it outlives the service
  HttpApiService service(argv[1], {.completionQueue = std::make_shared<MainLoop>(loop)}, apiKey);

  int status = 1;
  asio::signal_set signals(loop, SIGINT, SIGTERM);
  auto work = asio::make_work_guard(loop);  // keeps the loop running while a call is in flight
  const auto confirmed =
      service.login(argv[2], password, "example-1", "Example").flatMap([&](const AuthenticationResponse& account) {
        return service.checkIfValidated(account.accessToken());
      });
  signals.async_wait([&](const boost::system::error_code& error, int) {
    if (!error) confirmed.cancel();
  });
  confirmed
      .then([&](const ValidatedEmailResponse& answer) {
        std::fprintf(out, "The address is %s.\n", answer.result() ? "confirmed" : "not confirmed yet");
        status = 0;
      })
      .trap([](const Error& error) { std::cerr << error << '\n'; })
      .finally([&] {
        signals.cancel();
        work.reset();
      });
  loop.run();
  std::fclose(out);
  return status;
}
