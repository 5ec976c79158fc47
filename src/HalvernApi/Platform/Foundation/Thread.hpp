// The threads of the platform layer, and how they end with their owner, at process exit and across fork. Not installed.
#pragma once

#include <functional>
#include <memory>
#include <thread>

namespace HalvernApi::Foundation {

// How often this process is the child of a fork since the library was loaded: threads do not live on in a child.
int forkCount();

// A thread to which no asynchronous signal is delivered: the application's signal handlers never run on it, and a
// SIGPIPE that its writes raise dies with it.
class Thread {
 public:
  Thread() = default;
  // Joins; but lets the thread go when called on it, when process exit has stopped it, or when it stayed behind in the
  // parent of a fork.
  ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  // False when the system has no thread to give. At most one thread for each object.
  bool start(std::function<void()> run);
  bool started() const { return thread_.joinable(); }

 private:
  std::thread thread_;
  int forkCount_ = 0;
};

// Once the process exits, no code of the application may run on a thread of ours: the static objects that it uses are
// being destroyed. A thread enters before it runs such code and leaves afterwards; exit waits for those inside, for one
// second at most. The exit handler is registered when the first thread starts, so a session in a static variable, which
// was there before, is destroyed later.
class ProcessExit {
 public:
  static bool begun();
  static bool enter();  // false once exit has begun; then `leave` is not due
  static void leave();
  [[noreturn]] static void park();  // for a thread that was refused: holds still until the process is gone

  // What the exit handler stops, before it waits for the threads inside.
  class Stoppable {
   public:
    virtual ~Stoppable() = default;
    virtual void stop() = 0;
  };
  static void stopAtExit(std::weak_ptr<Stoppable> stoppable);
};

}  // namespace HalvernApi::Foundation
