// The sockets of one session's connections: close-on-exec from birth, and known one by one, so that a connection on
// which something arrived while nobody asked is not used again. For one thread at a time. Not installed.
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
    // The two ends; the local port is 0 until a request goes out for the first time.
    int localPort = 0;
    int peerPort = 0;
    std::string peer{};
    bool inUse = false;  // a request was sent, or is about to be, whose answer has not been read
  };

  // CURL_SOCKET_BAD when the system has none to give.
  curl_socket_t open(const curl_sockaddr& address);
  void close(curl_socket_t handle);

  // The connection with these ends, over which a request is about to be sent; the caller ends `inUse`. Null if
  // something has arrived on the connection while it was idle: it is shut down then.
  std::shared_ptr<Socket> use(const char* peer, int peerPort, int localPort);

 private:
  std::vector<std::shared_ptr<Socket>> sockets_;
};

}  // namespace HalvernApi::Alamofire
