// The threads of the platform layer. Not installed.
#pragma once

#include <functional>
#include <thread>

#include "HalvernApi/Platform/Foundation/Fork.hpp"

namespace HalvernApi::Foundation {

// A thread to which no asynchronous signal is delivered: the application's signal handlers never run on it, and a
// SIGPIPE that its writes raise stays pending on it for good.
class Thread {
 public:
  Thread() = default;
  // Joins. Only detaches when called on the thread itself, after process exit began, or in the child of a fork.
  ~Thread();

  // False when the system has no thread to give. At most one thread for each object.
  bool start(std::function<void()> run);
  bool started() const { return thread_.joinable(); }
  bool isThis() const { return thread_.get_id() == std::this_thread::get_id(); }
  // Not on the thread itself.
  void join() { thread_.join(); }

 private:
  std::thread thread_;
  OriginalProcess origin_;
};

}  // namespace HalvernApi::Foundation
