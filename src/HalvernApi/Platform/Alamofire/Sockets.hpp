// The sockets of one session's connections: close-on-exec from birth, never one of the standard streams, and known one
// by one, so that a connection on which something arrived while nobody asked, or that is older than the last `retire`,
// is not used again. For one thread at a time. Not installed.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>
#include <vector>

namespace HalvernApi::Alamofire {

class Sockets {
 public:
  struct Socket {
    curl_socket_t handle;
    // The two ends; the local port is 0 until a request is sent over the connection for the first time.
    int localPort = 0;
    int peerPort = 0;
    std::string peer{};
    bool inUse = false;    // a request was sent, or is about to be, whose answer has not been read
    bool retired = false;  // must not carry another request
  };

  // CURL_SOCKET_BAD if the system has none to give; may throw std::bad_alloc.
  curl_socket_t open(const curl_sockaddr& address);
  void close(curl_socket_t handle);

  // The connection with these ends, over which a request is about to be sent; the caller releases it. Null if it was
  // retired, or if something has arrived on it while it was idle: it is shut down then.
  std::shared_ptr<Socket> use(const char* peer, int peerPort, int localPort);
  // The answer was read, or will not be. A null pointer is allowed.
  static void release(const std::shared_ptr<Socket>& socket);
  // Lets no connection that exists now carry another request. Idle ones are shut down at once, others when they are
  // released.
  void retire();

 private:
  std::vector<std::shared_ptr<Socket>> sockets_;
};

}  // namespace HalvernApi::Alamofire
