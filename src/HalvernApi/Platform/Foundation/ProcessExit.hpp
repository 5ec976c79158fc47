// Stops handlers and threads when the process exits. Not installed.
#pragma once

#include <memory>

namespace HalvernApi::Foundation {

// Once the process exits, the library must not start a handler of the application: the static objects that the handler
// uses are being destroyed. Code that runs handlers calls `enter` before and `leave` afterwards. Exit waits for code
// between these two calls, but for one second at most. Any thread.
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
  // Exit will stop `stoppable`, before it destroys objects that existed at the first call of this function. Returns
  // false if exit has already begun: it may miss `stoppable`. May throw std::bad_alloc.
  [[nodiscard]] static bool stopAtExit(std::weak_ptr<Stoppable> stoppable);
  // Called by destructors. If one runs on the main thread after the thread-local objects of that thread were destroyed,
  // the process is exiting. This function then begins exit, unless exit has begun already.
  static void noticeFromDestructor();
};

}  // namespace HalvernApi::Foundation
