// The threads of the platform layer, and how they end with their owner, at process exit and across fork. Not installed.
#pragma once

#include <functional>
#include <memory>
#include <thread>

namespace HalvernApi::Foundation {

// How often this process is the child of a fork since the library was loaded: threads do not live on in a child.
int forkCount();

// A thread to which no asynchronous signal is delivered: the application's signal handlers never run on it, and a
// SIGPIPE that its writes raise stays pending on it for good.
class Thread {
 public:
  Thread() = default;
  // Joins; but lets the thread go when called on it, when process exit has begun, or when it stayed behind in the
  // parent of a fork.
  ~Thread();

  // False when the system has no thread to give. At most one thread for each object.
  bool start(std::function<void()> run);
  bool started() const { return thread_.joinable(); }
  bool isThis() const { return thread_.get_id() == std::this_thread::get_id(); }
  // Not on the thread itself.
  void join() { thread_.join(); }

 private:
  std::thread thread_;
  int forkCount_ = 0;
};

// Once the process exits, no handler of the application may begin by our doing: the static objects that it uses are
// being destroyed. Whoever is about to run handlers enters before and leaves afterwards; exit waits for those inside,
// for one second at most. Any thread.
class ProcessExit {
 public:
  static bool begun();
  static bool enter();  // false once exit has begun; then `leave` is not due
  static void leave();

  // What exit stops, before it waits for those inside.
  class Stoppable {
   public:
    virtual ~Stoppable() = default;
    virtual void stop() = 0;
  };
  // From here on, exit begins before whatever existed at the first such call of the process is destroyed.
  static void stopAtExit(std::weak_ptr<Stoppable> stoppable);
  // For destructors: one that runs on the main thread after what is local to that thread was destroyed runs at exit,
  // which then begins, if it has not.
  static void noticeFromDestructor();
};

}  // namespace HalvernApi::Foundation
