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
    int users = 0;  // requests whose answers are to come over it
  };

  // CURL_SOCKET_BAD when the system has none to give.
  curl_socket_t open(const curl_sockaddr& address);
  void close(curl_socket_t handle);

  // Adds a user to the connection with these ends, over which a request is about to go out. Null, and the connection is
  // of no use any more, when something has arrived on it while it had no user.
  std::shared_ptr<Socket> use(const char* peer, int peerPort, int localPort);

 private:
  std::vector<std::shared_ptr<Socket>> sockets_;
};

}  // namespace HalvernApi::Alamofire
