// The POSIX functions that the library uses. For Windows, this file defines replacements with the same names. Windows
// has no fork and no signals that threads must block. Any thread. Not installed.
#pragma once

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>

#include <realtimeapiset.h>

#include <chrono>
#include <cstdio>
#include <ctime>

namespace HalvernApi {

struct LocalTime : std::tm {
  std::time_t tm_gmtoff;
};

// Replaces the function of the C library on Windows, which does not support times before 1970.
inline void localtime_r(const std::time_t* time, LocalTime* local) {
  constexpr std::time_t ticks = 10'000'000, epoch = 11'644'473'600;  // ticks per second; seconds from 1601 to 1970
  const auto fileTime = static_cast<unsigned long long>((*time + epoch) * ticks);
  FILETIME utc{static_cast<DWORD>(fileTime), static_cast<DWORD>(fileTime >> 32)}, wallClock{};
  SYSTEMTIME fields{};
  if (!::FileTimeToSystemTime(&utc, &fields) || !::SystemTimeToTzSpecificLocalTimeEx(nullptr, &fields, &fields) ||
      !::SystemTimeToFileTime(&fields, &wallClock))
    return;
  const auto wallClockTime =
      (static_cast<unsigned long long>(wallClock.dwHighDateTime) << 32) + wallClock.dwLowDateTime;
  *local = {
      {fields.wSecond, fields.wMinute, fields.wHour, fields.wDay, fields.wMonth - 1, fields.wYear - 1900, 0, 0, 0},
      static_cast<std::time_t>(wallClockTime) / ticks - epoch - *time};
}

struct SigpipeBlock {};

inline void flockfile(std::FILE* file) { ::_lock_file(file); }
inline void funlockfile(std::FILE* file) { ::_unlock_file(file); }

inline const DWORD loadingThread = ::GetCurrentThreadId();
inline bool pthread_main_np() { return ::GetCurrentThreadId() == loadingThread; }

constexpr int SOCK_CLOEXEC = 0, SHUT_RDWR = SD_BOTH, MSG_DONTWAIT = 0;  // sockets of libcurl never block
inline SOCKET aboveStandardStreams(SOCKET handle) { return handle; }
inline std::chrono::nanoseconds timeAsleep() {
  ULONGLONG withSleep = 0, withoutSleep = 0;  // in units of 100 ns
  ::QueryInterruptTime(&withSleep);
  ::QueryUnbiasedInterruptTime(&withoutSleep);
  return std::chrono::nanoseconds(100 * static_cast<long long>(withSleep - withoutSleep));
}
inline int poll(pollfd* entries, ULONG count, int timeout) { return ::WSAPoll(entries, count, timeout); }
inline void closeOnExec(SOCKET handle) {
  ::SetHandleInformation(reinterpret_cast<HANDLE>(handle), HANDLE_FLAG_INHERIT, 0);
}

}  // namespace HalvernApi

#else
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <ctime>

namespace HalvernApi {

using LocalTime = std::tm;

#ifndef SOCK_CLOEXEC
constexpr int SOCK_CLOEXEC = 0;
#endif
inline void closeOnExec(int handle) { ::fcntl(handle, F_SETFD, FD_CLOEXEC); }
// Takes ownership of `handle` and returns a descriptor of the same socket above 2. If the process has closed its
// standard output, a new socket may have the number 1 and would receive all output. Returns -1 if the system has no
// more descriptors.
inline int aboveStandardStreams(int handle) {
  if (handle < 0 || handle > STDERR_FILENO) return handle;
  const int other = ::fcntl(handle, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  ::close(handle);
  return other;
}
// How long the device has been asleep since it was started; always 0 if the system does not measure this.
inline std::chrono::nanoseconds timeAsleep() {
#ifdef CLOCK_BOOTTIME
  constexpr clockid_t withSleep = CLOCK_BOOTTIME, withoutSleep = CLOCK_MONOTONIC;
#elif defined(CLOCK_UPTIME_RAW)
  constexpr clockid_t withSleep = CLOCK_MONOTONIC_RAW, withoutSleep = CLOCK_UPTIME_RAW;
#else
  constexpr clockid_t withSleep = CLOCK_MONOTONIC, withoutSleep = CLOCK_MONOTONIC;
#endif
  const auto read = [](clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  };
  return read(withSleep) - read(withoutSleep);
}
inline void closesocket(int handle) { ::close(handle); }

// Suppresses SIGPIPE, which a write to a pipe or socket without reader raises, in this thread while the object exists.
// If the thread already blocks SIGPIPE, as the threads of the library do, the signal may stay pending.
class SigpipeBlock {
 public:
  SigpipeBlock() {
    sigemptyset(&sigpipe_);
    sigaddset(&sigpipe_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe_, &before_);
  }
  ~SigpipeBlock() {
    if (sigismember(&before_, SIGPIPE) == 1) return;
    sigset_t pending{};
    int taken = 0;
    if (sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1) sigwait(&sigpipe_, &taken);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  SigpipeBlock(const SigpipeBlock&) = delete;
  SigpipeBlock& operator=(const SigpipeBlock&) = delete;

 private:
  sigset_t sigpipe_{}, before_{};
};

}  // namespace HalvernApi
#endif
