// What every client program of the benchmark shares: its arguments, its clocks and the line that it prints.
#pragma once

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace Bench {

using Clock = std::chrono::steady_clock;

struct Arguments {
  std::string baseUrl;
  int inFlight;
  int calls;
  std::string certificateAuthority;  // empty without TLS

  static Arguments read(int argc, char** argv) {
    if (argc < 4) {
      std::fprintf(stderr, "usage: %s BASE-URL IN-FLIGHT CALLS [CA-FILE]\n", argv[0]);
      std::exit(2);
    }
    return {argv[1], std::atoi(argv[2]), std::atoi(argv[3]), argc > 4 ? argv[4] : ""};
  }
};

inline const char* loginPath = "/api/v1/account/login";
inline const char* loginBody =
    R"({"email":"somebody@example.com","password":"correct horse","appInstanceId":"instance-1","appInstanceName":"Phone"})";

// User and system time of the whole process, in microseconds.
inline double cpuMicroseconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto micros = [](timeval time) { return 1e6 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec); };
  return micros(usage.ru_utime) + micros(usage.ru_stime);
}

// Counts calls, leaves out a warm-up of a tenth of them, and reports on standard error; the answers go to standard output.
class Meter {
 public:
  explicit Meter(int calls) : warmUp_(calls / 10), last_(calls + calls / 10) { latencies_.reserve(static_cast<std::size_t>(calls)); }

  bool more() const { return started_ < last_; }
  Clock::time_point start() {
    ++started_;
    return Clock::now();
  }
  // True when it was the last one.
  bool end(Clock::time_point started) {
    const auto now = Clock::now();
    if (++ended_ == warmUp_) {
      wall_ = now;
      cpu_ = cpuMicroseconds();
    } else if (ended_ > warmUp_) {
      latencies_.push_back(std::chrono::duration<double, std::micro>(now - started).count());
    }
    return ended_ == last_;
  }
  void failed() {
    std::fprintf(stderr, "a call failed\n");
    std::_Exit(1);
  }

  // Microseconds of CPU a call, calls a second, median and 99th percentile of the latency in microseconds.
  void report() {
    const double calls = static_cast<double>(latencies_.size());
    const double cpu = (cpuMicroseconds() - cpu_) / calls;
    const double seconds = std::chrono::duration<double>(Clock::now() - wall_).count();
    std::sort(latencies_.begin(), latencies_.end());
    const auto at = [&](double share) { return latencies_[static_cast<std::size_t>(share * (calls - 1))]; };
    std::fprintf(stderr, "cpu %.2f rate %.0f p50 %.1f p99 %.1f\n", cpu, calls / seconds, at(0.5), at(0.99));
  }

 private:
  const int warmUp_;
  const int last_;
  int started_ = 0;
  int ended_ = 0;
  Clock::time_point wall_;
  double cpu_ = 0;
  std::vector<double> latencies_;
};

}  // namespace Bench
