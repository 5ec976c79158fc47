// Stops handlers and threads when the process exits. Not installed.
#pragma once

#include <memory>

namespace HalvernApi::Foundation {

// After exit has begun, the library must not start handlers of the application: the static objects that a handler uses
// may already be destroyed. Code that runs handlers calls `enter` before and `leave` afterwards. Exit waits for running
// handlers, but for one second at most. Any thread.
class ProcessExit {
 public:
  static bool begun();
  static bool enter();  // false once exit has begun; then `leave` must not be called
  static void leave();

  // An object that exit stops before it waits for running handlers.
  class Stoppable {
   public:
    virtual ~Stoppable() = default;
    virtual void stop() = 0;
  };
  // Exit will call `stoppable.stop()`, before it destroys static objects that existed at the first call of this
  // function. Returns false if exit has already begun; then `stop` is not called. May throw std::bad_alloc.
  [[nodiscard]] static bool stopAtExit(std::weak_ptr<Stoppable> stoppable);
  // Destructors call this function. If the thread-local objects of the main thread have already been destroyed, the
  // process is exiting. Then this function begins exit, unless exit has begun already.
  static void noticeFromDestructor();
};

}  // namespace HalvernApi::Foundation
