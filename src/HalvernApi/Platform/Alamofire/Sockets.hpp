// The sockets of the connections of one session. They are created close-on-exec and are never one of the standard
// streams. A connection is not used again if data arrived on it while it was idle, or if it was opened before the last
// `retire`. Not thread-safe: the I/O thread uses it. Not installed.
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
    // The endpoints. The local port is 0 until the connection is used for its first request.
    int localPort = 0;
    int peerPort = 0;
    std::string peer{};
    bool inUse = false;    // between `use` and `release`
    bool retired = false;  // must not carry another request
  };

  // Returns CURL_SOCKET_BAD if the system cannot create a socket. May throw std::bad_alloc.
  curl_socket_t open(const curl_sockaddr& address);
  void close(curl_socket_t handle);

  // Called when a request is about to be sent over the connection with these endpoints. The caller releases the socket
  // when the answer has been read or will not be read. If the connection was retired, or if data arrived on it while it
  // was idle, this function shuts it down and returns null.
  std::shared_ptr<Socket> use(const char* peer, int peerPort, int localPort);
  // `socket` may be null.
  static void release(const std::shared_ptr<Socket>& socket);
  // Ensures that no existing connection is used for another request. Idle connections are shut down immediately, others
  // when they are released.
  void retire();

 private:
  std::vector<std::shared_ptr<Socket>> sockets_;
};

}  // namespace HalvernApi::Alamofire
