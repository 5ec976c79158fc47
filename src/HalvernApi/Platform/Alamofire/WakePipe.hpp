// Wakes a thread out of poll(). One thread waits, any may wake it. Not installed.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace HalvernApi::Alamofire {

class WakePipe {
 public:
  WakePipe() = default;
  ~WakePipe() {
    for (const int end : ends_)
      if (end >= 0) ::close(end);
  }
  WakePipe(const WakePipe&) = delete;
  WakePipe& operator=(const WakePipe&) = delete;

  // False, with errno set, when the system has no descriptor to give.
  bool open() {
    if (::pipe(ends_) != 0) return false;
    for (const int end : ends_) {
      ::fcntl(end, F_SETFD, FD_CLOEXEC);
      ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
    return true;
  }

  // What to wait for: readable after a wake-up, until drained.
  int readEnd() const { return ends_[0]; }
  void wake() const { [[maybe_unused]] const auto written = ::write(ends_[1], "", 1); }  // full: it is awake anyway
  void drain() const {
    char bytes[64];
    while (::read(ends_[0], bytes, sizeof bytes) == sizeof bytes) {
    }
  }

 private:
  int ends_[2] = {-1, -1};
};

}  // namespace HalvernApi::Alamofire
