// Bytes as the whole answer of a server, over a loopback socket: status line, headers, body, and then the end of the
// connection. Every call settles once and in time, and with what the status allows.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <future>
#include <mutex>
#include <thread>

#include "HalvernApi/HalvernApi.hpp"
#include "Support.hpp"

namespace HalvernApi::Fuzz {
namespace {

std::mutex answerMutex;
std::string answer;
std::atomic<int> status;  // as the log has it

// Gives the answer to every request, each on a connection of its own, one after the other.
void serve(int listener) {
  for (int socket = 0; (socket = ::accept(listener, nullptr, nullptr)) >= 0; ::close(socket)) {
    // All of the request: bytes left unread would make the end of the connection an abrupt one.
    std::string request;
    std::array<char, 4096> block;
    for (ssize_t count = 0; !request.ends_with('}') && !request.ends_with("\r\n\r\n") &&
                            (count = ::recv(socket, block.data(), block.size(), 0)) > 0;)
      request.append(block.data(), static_cast<std::size_t>(count));
    const std::lock_guard lock(answerMutex);
    [[maybe_unused]] const ssize_t sent = ::send(socket, answer.data(), answer.size(), MSG_NOSIGNAL);
  }
}

std::string startServer() {
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  require(::bind(listener, generic, size) == 0 && ::listen(listener, SOMAXCONN) == 0, "a server listens");
  require(::getsockname(listener, generic, &size) == 0, "a server knows its port");
  std::thread(serve, listener).detach();
  return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
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
  static HttpApiService service(
      startServer(),
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
