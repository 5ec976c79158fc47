// The sandbox's end of the wire: an HTTP server that hands every request to one function. Its connections are its own,
// rather than the library's, so that it can end them at once and close one without an answer. Any thread.
#pragma once

// httplib before everything else of ours: its layout depends on macros that come with its package.
#include <httplib.h>
#include <signal.h>

#include <functional>
#include <mutex>
#include <set>
#include <thread>

#include "HalvernApi/Testing/Sandbox.hpp"

namespace HalvernApi::Testing {

// Making an httplib::Server makes the process ignore SIGPIPE; this puts back what was there.
struct SigpipeAction {
  SigpipeAction() { sigaction(SIGPIPE, nullptr, &action); }
  void restore() const { sigaction(SIGPIPE, &action, nullptr); }
  struct sigaction action {};
};

class Server final : private SigpipeAction, private httplib::Server {
 public:
  // Absent closes the connection.
  using Handler = std::function<std::optional<Answer>(SeenRequest)>;

  // Binds, but does not serve yet. Throws std::runtime_error when the port is taken.
  explicit Server(int port);
  ~Server() override { stop(); }

  void start(Handler handler);
  // Ends all connections and waits for the handler's running calls.
  void stop();

  int port() const { return port_; }
  std::size_t connections() const;

 private:
  bool process_and_close_socket(int socket) override;
  void serve(const httplib::Request& request, httplib::Response& response) const;

  int port_;
  Handler handler_;
  std::thread thread_;
  mutable std::mutex mutex_;
  bool stopping_ = false;
  std::set<int> sockets_;
  std::size_t connections_ = 0;
};

}  // namespace HalvernApi::Testing
