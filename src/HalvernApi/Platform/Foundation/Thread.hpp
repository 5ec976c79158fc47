// The threads of the platform layer. Not installed.
#pragma once

#include <functional>
#include <thread>

#include "HalvernApi/Platform/Foundation/Export.hpp"
#include "HalvernApi/Platform/Foundation/Fork.hpp"

namespace HalvernApi::Foundation {

// A thread that receives no asynchronous signals. The application's signal handlers never run on it, and a SIGPIPE that
// its writes raise stays pending on it forever.
class Thread {
 public:
  Thread() = default;
  // Joins the thread. Detaches it instead if called on the thread itself, after process exit began, or in a forked
  // child.
  ~Thread();

  // Returns false if the system cannot create a thread. Each object starts one thread at most.
  bool start(std::function<void()> run);
  bool started() const { return thread_.joinable(); }
  // Whether the calling thread is one of the library's.
  HALVERNAPI_EXPORT static bool isOwn();
  bool isThis() const;  // true also while another thread calls `join`
  // Must not be called on the thread itself.
  void join() { thread_.join(); }

 private:
  std::thread thread_;
  OriginalProcess origin_;
};

}  // namespace HalvernApi::Foundation
