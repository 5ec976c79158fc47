// A server on a free port of 127.0.0.1 that answers every request by a script: bytes in pieces, pauses, silence, an
// orderly or an abrupt end. It keeps what it received. Every member may be called from any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace HalvernApi::Tests {

struct Step {
  enum Kind {
    send,   // the bytes in one piece
    drip,   // the bytes one by one, with `time` after each
    pause,  // for `time`
    hold,   // until `release` is called; without it, for good
    close,  // the connection
    reset,  // the connection, so that the client's next read fails
  } kind;
  std::string bytes{};
  std::chrono::milliseconds time{};
};

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

// The bytes of one accepted connection: plain here, and to be derived from for TLS.
class Channel {
 public:
  explicit Channel(int socket) : socket_(socket) {}
  virtual ~Channel() = default;
  virtual long read(char* into, std::size_t room);           // not above 0 at the end, and when it fails
  virtual long write(const char* bytes, std::size_t count);  // how many of them; below 0 when it fails

 protected:
  const int socket_;  // the server's to close
};

class ScriptedServer {
 public:
  // Makes the channel of an accepted socket; null ends the connection.
  using MakeChannel = std::function<std::unique_ptr<Channel>(int socket)>;

  // Requests are answered in the order of their arrival, whichever connection they come over; the last answer also
  // serves all further ones.
  explicit ScriptedServer(std::vector<Answer> answers, MakeChannel makeChannel = std::make_unique<Channel, int>);
  ~ScriptedServer();

  std::string authority() const { return authority_; }  // "127.0.0.1:54321"
  std::string url() const { return "http://" + authority_; }

  void release();
  // False when fewer have arrived after ten seconds.
  [[nodiscard]] bool awaitRequests(std::size_t count);
  // True when so many connections have been closed on this side; false after ten seconds.
  [[nodiscard]] bool awaitClosed(int count);
  std::vector<Received> requests() const;
  int connections() const;

 private:
  void acceptAll();
  void serve(int socket);
  bool play(const Step& step, Channel& channel, int socket);
  bool sendAll(Channel& channel, const std::string& bytes, std::size_t piece, std::chrono::milliseconds pause);
  bool rest(std::chrono::milliseconds time);

  const std::vector<Answer> answers_;
  const MakeChannel makeChannel_;
  const int listener_;
  std::string authority_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Received> requests_;
  std::set<int> open_;
  int connections_ = 0;
  int closed_ = 0;
  bool released_ = false;
  bool stopping_ = false;
  std::vector<std::thread> serving_;
  std::thread accepting_;
};

}  // namespace HalvernApi::Tests
