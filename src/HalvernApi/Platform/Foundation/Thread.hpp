// The threads of the platform layer. Not installed.
#pragma once

#include <functional>
#include <thread>

#include "HalvernApi/Platform/Foundation/Export.hpp"
#include "HalvernApi/Platform/Foundation/Fork.hpp"

namespace HalvernApi::Foundation {

// A thread that receives no asynchronous signals. The application's handlers of such signals never run on this thread.
// A SIGPIPE that a write on this thread raises stays pending.
class Thread {
 public:
  Thread() = default;
  // Joins the thread. On the thread itself, after process exit has begun, and in a forked child, detaches it instead.
  ~Thread();

  // Returns false if the system cannot create a thread. Must not be called again after it has returned true.
  bool start(std::function<void()> run);
  bool started() const { return thread_.joinable(); }
  // Whether the calling thread is a thread of the library.
  HALVERNAPI_EXPORT static bool isOwn();
  bool isThis() const;  // may be called while another thread calls `join`
  // Must not be called on the thread itself.
  void join() { thread_.join(); }

 private:
  std::thread thread_;
  OriginalProcess origin_;
};

}  // namespace HalvernApi::Foundation
