// What all client programs of the benchmark share: arguments, measurements and the printed line.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace Bench {

using Clock = std::chrono::steady_clock;

// The request: to sign in, or to get a large configuration.
struct Operation {
  const char* path;
  const char* body;
};
inline constexpr Operation login = {
    "/api/v1/account/login",
    R"({"email":"somebody@example.com","password":"correct horse","appInstanceId":"instance-1","appInstanceName":"Phone"})"};
inline constexpr Operation configuration = {"/api/v1/account/personalize-hearing-aids", R"({"aids":[]})"};

struct Arguments {
  bool isLogin;
  std::string baseUrl;
  int inFlight;
  int calls;                         // 0: start the calls in flight, and measure their memory
  std::string certificateAuthority;  // empty: no TLS

  const Operation& operation() const { return isLogin ? login : configuration; }

  static Arguments read(int argc, char** argv) {
    if (argc < 5) {
      std::fprintf(stderr, "usage: %s login|configuration BASE-URL IN-FLIGHT CALLS [CA-FILE]\n", argv[0]);
      std::exit(2);
    }
    return {std::string(argv[1]) == "login", argv[2], std::atoi(argv[3]), std::atoi(argv[4]), argc > 5 ? argv[5] : ""};
  }
};

inline double cpuMicroseconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto micros = [](timeval time) {
    return 1e6 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec);
  };
  return micros(usage.ru_utime) + micros(usage.ru_stime);
}

inline double residentBytes() {
  double pages = 0;
  std::ifstream statistics("/proc/self/statm");
  statistics.ignore(64, ' ') >> pages;
  return pages * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// Calls `step` until the memory has not changed for a quarter of a second. Reports the growth since `before`, in bytes
// per call.
template <class Step>
void reportMemory(double before, int calls, Step step) {
  double last = 0;
  for (int same = 0; same < 5; same = residentBytes() == last ? same + 1 : 0) {
    last = residentBytes();
    step();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  std::fprintf(stderr, "bytes %.0f\n", (last - before) / calls);
}

// Measures calls after a warm-up, which has a tenth of their number. Reports on standard error, because answers are
// printed on standard output.
class Meter {
 public:
  explicit Meter(int calls) : warmUp_(calls / 10), last_(calls + calls / 10) {
    latencies_.reserve(static_cast<std::size_t>(calls));
  }

  bool more() const { return started_ < last_; }
  Clock::time_point start() {
    ++started_;
    return Clock::now();
  }
  // Records the time of the first answer, including answers of the warm-up.
  void answered() {
    if (!firstAnswer_) firstAnswer_ = Clock::now();
  }
  // Ends a call. Returns whether it was the last one.
  bool end(Clock::time_point started) {
    const auto now = Clock::now();
    answered();
    ++ended_;
    if (ended_ == warmUp_) {
      wall_ = now;
      cpu_ = cpuMicroseconds();
    } else if (ended_ > warmUp_) {
      latencies_.push_back(microseconds(now - started));
    }
    return ended_ == last_;
  }
  [[noreturn]] static void failed() {
    std::fprintf(stderr, "a call failed\n");
    std::_Exit(1);
  }

  // Prints CPU microseconds per call, calls per second, median and 99th percentile of the latency in microseconds, and
  // the microseconds from the construction of the meter to the first answer.
  void report() {
    const double calls = static_cast<double>(latencies_.size());
    const double cpu = (cpuMicroseconds() - cpu_) / calls;
    const double seconds = microseconds(Clock::now() - wall_) / 1e6;
    std::sort(latencies_.begin(), latencies_.end());
    const auto at = [&](double share) { return latencies_[static_cast<std::size_t>(share * (calls - 1))]; };
    std::fprintf(stderr, "cpu %.2f rate %.0f p50 %.1f p99 %.1f first %.1f\n", cpu, calls / seconds, at(0.5), at(0.99),
                 microseconds(*firstAnswer_ - made_));
  }

 private:
  static double microseconds(Clock::duration time) { return std::chrono::duration<double, std::micro>(time).count(); }

  const Clock::time_point made_ = Clock::now();
  const int warmUp_;
  const int last_;
  int started_ = 0;
  int ended_ = 0;
  std::optional<Clock::time_point> firstAnswer_;
  Clock::time_point wall_ = made_;
  double cpu_ = 0;
  std::vector<double> latencies_;
};

}  // namespace Bench
