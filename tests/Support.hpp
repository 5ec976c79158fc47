// Shared by the tests: scripted servers, servers that stall calls, queues of an application, and the resources of the
// process. Every member may be called from any thread.
#pragma once

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <boost/asio.hpp>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <set>
#include <thread>

#include "HalvernApi/HalvernApi.hpp"
#include "Server.hpp"

namespace HalvernApi::Tests {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Testing::Step;

// The factor by which time and memory limits grow under a sanitizer.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int slack = 10;
#elif defined(__has_feature)
constexpr int slack = __has_feature(thread_sanitizer) || __has_feature(address_sanitizer) ? 10 : 1;
#else
constexpr int slack = 1;
#endif

// `slack` times the load per processor, because other processes may use this machine at the same time.
inline double slowness() {
  double load = 0;
  ::getloadavg(&load, 1);
  return slack * std::max(1.0, load / std::max(1U, std::thread::hardware_concurrency()));
}

// Waits until `condition` is true. Returns false after twenty seconds.
template <class Condition>
[[nodiscard]] bool eventually(Condition condition) {
  const auto deadline = Clock::now() + 20s;
  while (!condition()) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

inline std::set<std::string> entries(const char* directory) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) names.insert(entry.path().filename());
  return names;
}

// The names of the open descriptors and of the threads of the process. Compares names, not counts: the system may list
// a joined thread for a moment, which must not hide a thread that was not joined.
struct ProcessResources {
  std::set<std::string> descriptors = entries("/proc/self/fd");
  std::set<std::string> threads = entries("/proc/self/task");

  bool isSubsetOf(const ProcessResources& before) const {
    return std::ranges::includes(before.descriptors, descriptors) && std::ranges::includes(before.threads, threads);
  }
};

inline const std::string cancelled = "network NSURLErrorDomain -999";
inline const std::string timedOut = "network NSURLErrorDomain -1001";
inline const std::string refused = "network NSURLErrorDomain -1004";
inline const std::string lost = "network NSURLErrorDomain -1005";
inline const std::string badAnswer = "network NSURLErrorDomain -1011";
inline const std::string invalid = "unknownNSError Alamofire.AFError 3";
inline const std::string notJson = "unknownNSError Alamofire.AFError 4";

inline std::string repeat(const std::string& piece, int times) {
  std::string whole;
  while (times-- > 0) whole += piece;
  return whole;
}

// Makes a call to any URL. If there is a `text`, the body contains it.
inline Promise<Unit, Error> call(SessionManager& session, const std::string& url,
                                 const std::optional<std::string>& text = {}, HTTPMethod method = HTTPMethod::post) {
  const auto body = text ? std::optional(JsonObject{{"text", *text}}) : std::nullopt;
  return request<Unit>(session, url, method, body, JSONEncoding::default_(), "key", "token",
                       [](const JsonValue&) { return Unit(); });
}

// The outcome of a call as text: "success", "network NSURLErrorDomain -1004", "validationError too short".
inline std::string wordsFor(const Error& error) {
  constexpr std::array cases = {"network", "unknownNSError", "validationError", "unknownJsonData", "notAuthorized"};
  std::string words = cases.at(static_cast<std::size_t>(error.code()));
  if (const NSError* platform = error.platformError())
    words += ' ' + platform->domain + ' ' + std::to_string(platform->code);
  if (const std::string* message = error.validationMessage()) words += ' ' + *message;
  return words;
}
template <class T>
std::string outcomeOf(const Promise<T, Error>& promise) {
  const auto result = promise.get();
  return result ? "success" : wordsFor(result.error());
}

// The outcome of the only call of a session.
inline std::string outcomeWith(const URLSessionConfiguration& configuration, const std::string& url,
                               const std::optional<std::string>& text = {}) {
  SessionManager session(configuration);
  return outcomeOf(call(session, url, text));
}

// The steps after one request. Then the connection stays open for the next request, unless a step ends it.
using Answer = std::vector<Step>;

inline Answer text(std::string bytes) { return {{Step::send, std::move(bytes)}}; }
// A complete answer, sent in one piece. An empty content type means that the header is not sent.
inline Answer http(int status, const std::string& contentType, const std::string& body) {
  return text(serialize(Testing::Answer{.status = status, .body = body, .contentType = contentType}));
}
inline Answer json(const std::string& body) { return http(200, "application/json", body); }
inline const Answer heldAnswer = {{Step::hold}, json("{}")[0]};
inline const Step closing{Step::close};

struct Received : Testing::SeenRequest {
  std::string raw;
  std::string line() const { return raw.substr(0, raw.find(" HTTP/1.1\r")); }
};

// A server on a free port of 127.0.0.1. Uses the answers in the order in which requests arrive, over any connection;
// the last answer is repeated. Keeps the requests.
class ScriptedServer {
 public:
  // Uses TLS if `tls` is not null. Every connection begins with the steps of `greeting`.
  explicit ScriptedServer(std::vector<Answer> answers, std::shared_ptr<ssl_ctx_st> tls = nullptr, Answer greeting = {});

  int port() const { return server_.port(); }
  std::string authority(const std::string& host = "127.0.0.1") const { return host + ':' + std::to_string(port()); }
  std::string url(const std::string& host = "127.0.0.1") const { return scheme_ + authority(host); }
  void release() { server_.release(); }
  // Wait until this number of requests has arrived, or the server has closed this number of connections. Return false
  // after ten seconds.
  [[nodiscard]] bool awaitRequests(std::size_t count);
  [[nodiscard]] bool awaitClosed(std::size_t count) const { return server_.awaitClosed(count); }
  std::vector<Received> requests() const;
  std::size_t connections() const { return server_.connections(); }

 private:
  const std::string scheme_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Received> requests_;
  Testing::Server server_;  // last, so that it is destroyed first: its handler uses the other members
};

// A listening socket that reads nothing. The system accepts connections until the backlog is full.
struct Listener {
  // If `full`, the backlog is full from the start. Port 0 selects a free port.
  explicit Listener(bool full, const char* address = "127.0.0.1", int port = 0);
  std::string url() const { return "http://127.0.0.1:" + std::to_string(acceptor.local_endpoint().port()); }
  bool receives();  // whether bytes have arrived on the first connection

  boost::asio::io_context context;
  boost::asio::ip::tcp::acceptor acceptor{context};
  boost::asio::ip::tcp::socket peer{context};  // if `full`: fills the backlog
};

// While this is true, a lookup of "blocked.example" blocks, and then fails. "two.example" has the addresses 127.0.0.2
// and 127.0.0.1. No other name exists.
inline std::atomic<bool> nameIsBlocked = false;
inline std::atomic<int> lookupsUnderWay = 0;
inline std::atomic<int> lookups = 0;         // of "two.example", so far
inline std::atomic<bool> twoIsGone = false;  // "two.example" does not exist any more

enum class Stage { lookingUp, connecting, sending, waiting, receiving };

// Stalls calls at one stage. At waiting and receiving, it stalls the first `calls` and answers later ones.
class StallingServer {
 public:
  StallingServer(Stage stage, std::size_t calls);
  ~StallingServer();
  const std::string& url() const { return url_; }
  // Waits until the calls have reached the stage. At lookingUp and sending it waits for one call; at connecting it does
  // not wait.
  [[nodiscard]] bool awaitCalls(std::size_t calls);

 private:
  const Stage stage_;
  ScriptedServer server_;
  const Listener full_{true};
  Listener deaf_{false};
  const std::string url_;
};

class PoolQueue final : public DispatchQueue {
 public:
  explicit PoolQueue(std::size_t threads) : pool_(threads) {}
  void async(std::function<void()> task) override { boost::asio::post(pool_, std::move(task)); }
  bool isHere() { return pool_.get_executor().running_in_this_thread(); }

 private:
  boost::asio::thread_pool pool_;
};

class InlineQueue final : public DispatchQueue {
 public:
  void async(std::function<void()> task) override { task(); }
};

// The completion queues to test: null, which selects the session's queue, and queues of an application.
inline std::vector<std::shared_ptr<DispatchQueue>> queues() {
  return {nullptr, std::make_shared<PoolQueue>(1), std::make_shared<PoolQueue>(4), std::make_shared<InlineQueue>()};
}

// A self-signed certificate for servers, and the file with which clients trust it.
struct Identity {
  struct Terms {
    std::string address = "127.0.0.1";
    int firstDay = -1;  // days from today
    int lastDay = 1;
    int newestProtocol = 0;  // a version constant of OpenSSL; 0 means no limit
  };
  explicit Identity(const Terms& terms);
  Identity() : Identity(Terms()) {}
  ~Identity() { std::filesystem::remove_all(directory); }
  std::string file() const { return directory + "/authority.pem"; }
  std::string pin() const;  // the pin of this key, for URLSessionConfiguration::pinnedPublicKeys

  // A directory that the destructor removes with its content.
  std::string directory = std::filesystem::temp_directory_path() / "halvernapi-XXXXXX";
  std::shared_ptr<ssl_ctx_st> channels;
};

// Runs `inChild` in a forked child. Returns the exit status of the child, or the negative number of the signal that
// ended it.
template <class F>
int statusOfChild(F inChild) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(30);
    std::_Exit(inChild());
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// Runs `inChild` in a new process, and expects that the process ends with status 0.
template <class F>
void expectCleanExit(F inChild) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT((::alarm(60), inChild()), testing::ExitedWithCode(0), "");
}

}  // namespace HalvernApi::Tests
