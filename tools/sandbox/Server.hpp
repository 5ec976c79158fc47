// A server on 127.0.0.1. It reads HTTP requests and calls a handler, which returns what to send: an HTTP answer or any
// other bytes, in pieces, late, or incomplete. It has one thread, which no step of an answer blocks. Every member may
// be called from any thread.
#pragma once

#include "HalvernApi/Testing/Sandbox.hpp"

struct ssl_ctx_st;

namespace HalvernApi::Testing {

struct Step {
  enum Kind {
    send,    // sends the bytes in one piece
    drip,    // sends the bytes one by one, and waits for `time` after each
    pause,   // waits for `time`; closes the connection as soon as the client does
    hold,    // waits until `release` is called
    follow,  // sends what `make` returns, now and after each `notify`, at least `time` apart, until the client closes
    count,   // sends nothing; counts the connection in `counted`, once
    close,   // closes the connection
    reset,   // resets the connection, so that the client's next read fails
  } kind;
  std::string bytes{};
  std::chrono::milliseconds time{};
  // For `send` and `follow`: called when the step begins. The result is sent after `bytes`.
  std::function<std::string()> make{};
  // For `pause`: called if the client closes the connection during the pause.
  std::function<void()> left{};
};

// The bytes of an HTTP answer. Without `hasLength`, more of the body can follow until the connection ends.
std::string serialize(const Answer& answer, bool hasLength = true);

// Whether HTTP allows answers with this status to have a body.
bool canHaveBody(int status);

class Server {
 public:
  // Returns the steps after one request; `raw` contains its bytes. Then the connection stays open for the next request,
  // unless a step or the request ends it. Runs on the server's thread.
  using Handler = std::function<std::vector<Step>(SeenRequest request, const std::string& raw)>;

  // Listens, but does not serve yet. Port 0 selects a free port. Uses TLS if `tls` is not null. Throws
  // std::runtime_error if it cannot listen, for example if the port is in use.
  explicit Server(int port = 0, std::shared_ptr<ssl_ctx_st> tls = nullptr);
  // Closes all connections, even in the middle of a step. Waits for the handler if it is running.
  ~Server();

  // The steps of `greeting` run when a connection is accepted.
  void start(Handler handler, std::vector<Step> greeting = {});
  // Ends every `hold`, including future ones.
  void release();
  // Makes every `follow` step call `make` again.
  void notify();

  int port() const;
  std::size_t connections() const;  // accepted since the start
  std::size_t counted() const;      // the connections that had a `count` step
  // Waits until the server has closed this number of connections. Returns false after ten seconds.
  bool awaitClosed(std::size_t count) const;

 private:
  struct Impl;
  const std::unique_ptr<Impl> impl_;
};

}  // namespace HalvernApi::Testing
