// What the reliability tests share: places where calls get stuck, queues of an application, servers that speak TLS, and
// what the process holds of the system. Every member may be called from any thread.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <filesystem>
#include <set>
#include <thread>

#include "ScriptedServer.hpp"
#include "TestSupport.hpp"

namespace HalvernApi::Tests {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// How many times longer than usual things may take, and how much more memory: under a sanitizer, say.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int slack = 10;
#elif defined(__has_feature)
constexpr int slack = __has_feature(thread_sanitizer) || __has_feature(address_sanitizer) ? 10 : 1;
#else
constexpr int slack = 1;
#endif

// Slack, times how many run where one can: others may be busy on this machine.
inline double slowness() {
  double load = 0;
  ::getloadavg(&load, 1);
  return slack * std::max(1.0, load / std::max(1U, std::thread::hardware_concurrency()));
}

// Whether `condition` comes to hold within twenty seconds.
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

// Which descriptors and threads the process holds: by name, for a thread that has been joined may be listed a moment
// longer, and must not make up for one that is left behind.
struct Holdings {
  std::set<std::string> descriptors = entries("/proc/self/fd");
  std::set<std::string> threads = entries("/proc/self/task");

  bool nothingNewSince(const Holdings& before) const {
    return std::includes(before.descriptors.begin(), before.descriptors.end(), descriptors.begin(),
                         descriptors.end()) &&
           std::includes(before.threads.begin(), before.threads.end(), threads.begin(), threads.end());
  }
};

inline const std::string cancelled = "network NSURLErrorDomain -999";
inline const std::string timedOut = "network NSURLErrorDomain -1001";
inline const std::string refused = "network NSURLErrorDomain -1004";
inline const std::string lost = "network NSURLErrorDomain -1005";

// "blocked.example" is looked up as long as this holds, and then does not exist, like every name in these tests but
// "two.example", which is 127.0.0.2 and 127.0.0.1.
inline std::atomic<bool> nameIsBlocked = false;
inline std::atomic<int> lookupsUnderWay = 0;

enum class Stage { lookingUp, connecting, waiting, receiving };
constexpr Stage allStages[] = {Stage::lookingUp, Stage::connecting, Stage::waiting, Stage::receiving};

// A listener that has no room for a connection; port 0 takes a free one.
class FullListener {
 public:
  explicit FullListener(const char* address, int port = 0);
  ~FullListener() { ::close(filler_), ::close(listener_); }
  int port() const { return port_; }

 private:
  const int listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int filler_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int port_;
};

// Holds calls at one stage. A server that has got that many answers all later ones.
class Trap {
 public:
  Trap(Stage stage, std::size_t calls);
  ~Trap();
  const std::string& url() const { return url_; }
  [[nodiscard]] bool holds(std::size_t calls);

 private:
  const Stage stage_;
  ScriptedServer server_;
  const FullListener full_{"127.0.0.1"};
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

// An application's own and, null, a session's own.
inline std::vector<std::shared_ptr<DispatchQueue>> queues() {
  return {nullptr, std::make_shared<PoolQueue>(1), std::make_shared<PoolQueue>(4), std::make_shared<InlineQueue>()};
}

struct Certificate {
  std::string address = "127.0.0.1";
  int firstDay = -1;  // counted from today
  int lastDay = 1;
  int newestProtocol = 0;  // a number of OpenSSL's; 0 means no limit
};

// Issues certificates, and is trusted by those that are given its file.
class Authority {
 public:
  Authority();
  ~Authority() { std::filesystem::remove_all(directory); }
  std::string file() const { return directory + "/authority.pem"; }
  // For a server that speaks TLS.
  std::shared_ptr<ssl_ctx_st> channels(const Certificate& certificate = {}) const;

  // Goes with this, and what is in it.
  std::string directory = std::filesystem::temp_directory_path() / "halvernapi-XXXXXX";

 private:
  struct Identity;
  static Identity issue(const Certificate& certificate, const Identity* issuer);
  std::shared_ptr<const Identity> own_;
};

}  // namespace HalvernApi::Tests
