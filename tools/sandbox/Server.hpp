// A server on 127.0.0.1 that reads HTTP requests, asks a handler what is to be sent, and sends it: an HTTP answer, or
// any bytes, in pieces, late, or cut off. All of it happens on one thread of its own, which no step of an answer
// blocks. Every member may be called from any thread.
#pragma once

#include "HalvernApi/Testing/Sandbox.hpp"

struct ssl_ctx_st;

namespace HalvernApi::Testing {

struct Step {
  enum Kind {
    send,    // the bytes in one piece
    drip,    // the bytes one by one, with `time` after each
    pause,   // for `time`
    hold,    // until `release` is called; without it, for good
    follow,  // what `make` returns, now and after each `notify`, at least `time` apart, until the client leaves
    count,   // sends nothing; `counted` counts connections on which this happened
    close,   // the connection
    reset,   // the connection, so that the client's next read fails
  } kind;
  std::string bytes{};
  std::chrono::milliseconds time{};
  // For `send` and `follow`: called when it is due, for what is sent after the bytes.
  std::function<std::string()> make{};
};

// The bytes of an HTTP answer.
std::string serialize(const Answer& answer);

class Server {
 public:
  // What happens after one request, of which `raw` are the bytes. The connection then stays open for the next one
  // unless a step, or the request, ends it. Runs on the server's thread.
  using Handler = std::function<std::vector<Step>(SeenRequest request, const std::string& raw)>;

  // Binds, but does not serve yet; port 0 takes a free one. Speaks TLS where there is a context for it. Throws
  // std::runtime_error when the port is taken.
  explicit Server(int port = 0, std::shared_ptr<ssl_ctx_st> tls = nullptr);
  // Ends every connection, in the middle of whatever goes on there, and waits for the handler if that is running.
  ~Server();

  // The greeting is played as soon as a connection is made.
  void start(Handler handler, std::vector<Step> greeting = {});
  // Ends every `hold`, those to come as well.
  void release();
  // Makes every `follow` send what is new.
  void notify();

  int port() const;
  std::size_t connections() const;  // accepted since the start
  std::size_t counted() const;      // of these, how many had a `count`
  // Whether the server has closed that many connections; waits for it, at most ten seconds.
  bool awaitClosed(std::size_t count) const;

 private:
  struct Impl;
  const std::unique_ptr<Impl> impl_;
};

}  // namespace HalvernApi::Testing
