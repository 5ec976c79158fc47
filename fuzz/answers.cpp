// Bytes as the whole answer of a server, over a loopback socket: status line, headers, body, and then the end of the
// connection. Every call settles once and in time, and with what the status allows.
#include <atomic>
#include <future>
#include <mutex>

#include "HalvernApi/HalvernApi.hpp"
#include "Server.hpp"
#include "Support.hpp"

namespace HalvernApi::Fuzz {
namespace {

std::mutex answerMutex;
std::string answer;
std::atomic<int> status;  // as the log has it

// Gives the answer to every request, each on a connection of its own.
std::vector<Testing::Step> give(const Testing::SeenRequest&, const std::string&) {
  const std::lock_guard lock(answerMutex);
  return {{Testing::Step::send, answer}, {Testing::Step::close}};
}

template <class T>
void checkCall(const Promise<T, Error>& promise) {
  const auto settled = std::make_shared<std::promise<void>>();
  promise.finally([settled] { settled->set_value(); });  // a second time would throw
  const auto wait = settled->get_future().wait_for(std::chrono::seconds(5));
  require(wait == std::future_status::ready, "a call settles in time");
  const auto result = promise.get();
  if (result) return require(status >= 200 && status <= 299, "a call succeeds only with a status of 2xx");
  using Case = Error::Case;
  const Case kind = result.error().kind();
  require((result.error().platformError() != nullptr) == (kind == Case::network || kind == Case::unknownNSError),
          "the first two cases, and no other, hold a platform error");
  require(kind != Case::validationError || (status == 400 && result.error().validationMessage()), "400 has words");
  require((kind == Case::notAuthorized) == (status == 401) || kind == Case::network, "401 is not authorized");
  require(kind != Case::unknownJsonData || (status >= 200 && status <= 299), "only a success is decoded");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Environment::log = [](const std::string& line) {
    if (line.starts_with("STATUS ")) status = std::atoi(line.c_str() + 7);
  };
  return std::freopen("/dev/null", "w", stdout) == nullptr;  // the library prints the bodies
}

void check(std::string_view input) {
  using namespace std::chrono_literals;
  static Testing::Server server;
  [[maybe_unused]] static const bool started = (server.start(give), true);
  static HttpApiService service(
      "http://127.0.0.1:" + std::to_string(server.port()),
      {.timeoutIntervalForRequest = 200ms, .timeoutIntervalForResource = 1s, .maximumResponseSize = 64 << 10}, "key");
  std::unique_lock lock(answerMutex);
  answer = input;
  lock.unlock();
  status = 0;
  checkCall(service.login("a@example.com", "password", "instance", "Phone"));
  status = 0;
  checkCall(service.resendValidationEmail("token"));
}

}  // namespace HalvernApi::Fuzz
