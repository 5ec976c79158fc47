// Sends the input as the whole answer of a server over a loopback socket, from the status line to the end of the
// connection. Every call must settle in time, with an outcome that the status allows.
#undef NDEBUG
#include <cassert>
#include <mutex>

#include "HalvernApi/HalvernApi.hpp"
#include "Server.hpp"

using namespace HalvernApi;
using namespace std::chrono_literals;

static std::mutex answerMutex;
static std::string answer;
static std::atomic<int> status;  // from the log; 0 if there was no answer
static Testing::Server server;

template <class T>
static void checkCall(const Promise<T, Error>& promise) {
  assert(promise.waitFor(5s));
  const auto result = promise.get();
  const bool succeeded = status >= 200 && status <= 299;
  if (result) return assert(succeeded);
  const Error& error = result.error();
  const bool network = error.kind() == Error::Case::network;
  assert((error.platformError() != nullptr) == (network || error.kind() == Error::Case::unknownNSError));
  assert(error.kind() != Error::Case::validationError || (status == 400 && error.validationMessage()));
  assert(network || (error.kind() == Error::Case::notAuthorized) == (status == 401));
  assert(error.kind() != Error::Case::unknownJsonData || succeeded);
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Environment::log = [](const std::string& line) {
    if (line.starts_with("STATUS ")) status = std::atoi(line.c_str() + 7);
  };
  // Sends the answer to every request, and closes the connection.
  server.start([](const auto&, const auto&) {
    const std::lock_guard lock(answerMutex);
    return std::vector<Testing::Step>{{Testing::Step::send, answer}, {Testing::Step::close}};
  });
  return std::freopen("/dev/null", "w", stdout) == nullptr;  // the library prints the bodies
}

extern "C" int LLVMFuzzerTestOneInput(const char* bytes, std::size_t size) {
  static HttpApiService service(
      "http://127.0.0.1:" + std::to_string(server.port()),
      {.timeoutIntervalForRequest = 200ms, .timeoutIntervalForResource = 1s, .maximumResponseSize = 64 << 10}, "key");
  std::unique_lock lock(answerMutex);
  answer.assign(bytes, size);
  lock.unlock();
  status = 0;
  checkCall(service.login("a@example.com", "password", "instance", "Phone"));
  status = 0;
  checkCall(service.resendValidationEmail("token"));
  return 0;
}
