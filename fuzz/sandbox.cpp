// Sends the input to a sandbox with a page, over a loopback socket. The sandbox must still serve the next client.
#undef NDEBUG
#include <boost/asio.hpp>
#include <cassert>
#include <sstream>

#include "HalvernApi/Testing/Sandbox.hpp"

using namespace HalvernApi;
using namespace std::chrono_literals;

// Sends `sent`. Returns all that the sandbox sends until it closes the connection or `time` has passed.
static std::string exchange(int port, std::string_view sent, std::chrono::milliseconds time) {
  boost::asio::ip::tcp::iostream stream("127.0.0.1", std::to_string(port));
  stream.expires_after(time);
  stream << sent << std::flush;
  boost::system::error_code ignored;
  stream.socket().shutdown(boost::asio::ip::tcp::socket::shutdown_send, ignored);
  std::ostringstream received;
  received << stream.rdbuf();
  return received.str();
}

extern "C" int LLVMFuzzerTestOneInput(const char* bytes, std::size_t size) {
  static Testing::Sandbox sandbox({.apiKey = "key", .page = true});
  sandbox.resetAll();
  sandbox.addAccount("a@b.c", "password");
  (void)exchange(sandbox.port(), {bytes, size}, 200ms);  // the input may contain a script with a longer delay
  const std::string answer = exchange(sandbox.port(), "GET /sandbox/state HTTP/1.1\r\nHost: localhost\r\n\r\n", 5s);
  assert(answer.starts_with("HTTP/1.1 200 "));
  return 0;
}
