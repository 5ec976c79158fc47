// What happens to handlers and threads when the process exits. Not installed.
#pragma once

#include <memory>

namespace HalvernApi::Foundation {

// Once the process exits, the library must not start a handler of the application: the static objects that it uses are
// being destroyed. Code that is about to run handlers calls `enter` before and `leave` afterwards; exit waits for those
// inside, for one second at most. Any thread.
class ProcessExit {
 public:
  static bool begun();
  static bool enter();  // false once exit has begun; then `leave` must not be called
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
