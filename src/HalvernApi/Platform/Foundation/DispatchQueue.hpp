#pragma once

#include <functional>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi::Foundation {

// Runs completion handlers. To run them in its main loop, an application derives from this class and sets
// URLSessionConfiguration::completionQueue.
class HALVERNAPI_EXPORT DispatchQueue {
 public:
  virtual ~DispatchQueue();

  // Must queue `task` and return immediately. Tasks must run in the order of the calls. The library calls `async` on
  // any thread, including the session's I/O thread, so it must not block. It must not throw, except std::bad_alloc. It
  // may run `task` itself only if handlers may delay the network and never wait for a call. Destroying a session
  // cancels its calls; the tasks that report this arrive afterwards. If the queue drops a task, the next task also does
  // its work.
  virtual void async(std::function<void()> task) = 0;
};

}  // namespace HalvernApi::Foundation

namespace HalvernApi {
using Foundation::DispatchQueue;
}  // namespace HalvernApi
