// What the library takes from POSIX and, on Windows, what stands for it there under the same names. Windows knows no
// fork, and none of the signals that threads have to be kept from. Any thread. Not installed.
#pragma once

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>

#include <cstdio>
#include <ctime>

namespace HalvernApi {

struct LocalTime : std::tm {
  std::time_t tm_gmtoff;
};

// The C library's knows nothing before 1970.
inline void localtime_r(const std::time_t* time, LocalTime* local) {
  constexpr std::time_t ticks = 10'000'000, epoch = 11'644'473'600;  // a second; seconds from 1601 to 1970
  const auto fileTime = static_cast<unsigned long long>((*time + epoch) * ticks);
  FILETIME utc{static_cast<DWORD>(fileTime), static_cast<DWORD>(fileTime >> 32)}, shown{};
  SYSTEMTIME fields{};
  if (!::FileTimeToSystemTime(&utc, &fields) || !::SystemTimeToTzSpecificLocalTimeEx(nullptr, &fields, &fields) ||
      !::SystemTimeToFileTime(&fields, &shown))
    return;
  const auto shownTime = (static_cast<unsigned long long>(shown.dwHighDateTime) << 32) + shown.dwLowDateTime;
  *local = {
      {fields.wSecond, fields.wMinute, fields.wHour, fields.wDay, fields.wMonth - 1, fields.wYear - 1900, 0, 0, 0},
      static_cast<std::time_t>(shownTime) / ticks - epoch - *time};
}

struct SigpipeBlock {};

inline void flockfile(std::FILE* file) { ::_lock_file(file); }
inline void funlockfile(std::FILE* file) { ::_unlock_file(file); }

inline const DWORD loadingThread = ::GetCurrentThreadId();
inline bool pthread_main_np() { return ::GetCurrentThreadId() == loadingThread; }

constexpr int SOCK_CLOEXEC = 0, SHUT_RDWR = SD_BOTH, MSG_DONTWAIT = 0;  // libcurl's sockets never block
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

#include <ctime>

namespace HalvernApi {

using LocalTime = std::tm;

#ifndef SOCK_CLOEXEC
constexpr int SOCK_CLOEXEC = 0;
#endif
inline void closeOnExec(int handle) { ::fcntl(handle, F_SETFD, FD_CLOEXEC); }
inline void closesocket(int handle) { ::close(handle); }

// While it exists, writes of this thread to a pipe that nobody reads raise no SIGPIPE. Where the thread blocks that
// signal already, as the library's own threads do, it may stay pending.
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
