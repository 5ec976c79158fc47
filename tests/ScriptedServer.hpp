// A server on a free port of 127.0.0.1 that answers every request by a script: bytes in pieces, pauses, silence, an
// orderly or an abrupt end. It keeps what it received. Every member may be called from any thread.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>

#include "Server.hpp"

namespace HalvernApi::Tests {

using Testing::Step;

// What happens after one request. The connection stays open for the next one unless a step ends it.
using Answer = std::vector<Step>;

// An ordinary answer in one piece. An empty content type stands for no such header.
Answer http(int status, const std::string& contentType, const std::string& body);
Answer json(const std::string& body);  // 200, "application/json"

struct Received {
  std::string raw;
  std::string line;                                 // "POST / HTTP/1.1"
  std::multimap<std::string, std::string> headers;  // names in lower case
  std::string body;
};

class ScriptedServer {
 public:
  // Requests are answered in the order of their arrival, whichever connection they come over; the last answer also
  // serves all further ones. Connections speak TLS where there is a context for it, and begin with the greeting.
  explicit ScriptedServer(std::vector<Answer> answers, std::shared_ptr<ssl_ctx_st> tls = nullptr, Answer greeting = {});

  std::string authority() const;  // "127.0.0.1:54321"
  std::string url() const { return "http://" + authority(); }

  void release() { server_.release(); }
  // False when fewer have arrived after ten seconds.
  [[nodiscard]] bool awaitRequests(std::size_t count);
  // False when the server has closed fewer connections after ten seconds.
  [[nodiscard]] bool awaitClosed(int count) const { return server_.awaitClosed(static_cast<std::size_t>(count)); }
  std::vector<Received> requests() const;
  int connections() const { return static_cast<int>(server_.connections()); }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Received> requests_;
  Testing::Server server_;  // ends before what its handler uses
};

}  // namespace HalvernApi::Tests
