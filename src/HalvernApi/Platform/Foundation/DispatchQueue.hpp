#pragma once

#include <functional>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi::Foundation {

// Runs completion handlers. To run them in its own main loop, an application derives from this class and sets
// URLSessionConfiguration::completionQueue.
class HALVERNAPI_EXPORT DispatchQueue {
 public:
  virtual ~DispatchQueue();

  // Runs `task` soon, after the tasks of earlier calls, and returns at once. Called from any thread, including the
  // session's I/O thread, so it must not block. It must not throw. A queue may run `task` inside this call only if its
  // tasks may delay the network and never wait for a call. Tasks also arrive after a session was destroyed, for the
  // calls that its destruction cancelled. If the queue drops a task, its handlers run, and the promises
  // that it would have settled settle, with the next task.
  virtual void async(std::function<void()> task) = 0;
};

}  // namespace HalvernApi::Foundation

namespace HalvernApi {
using Foundation::DispatchQueue;
}  // namespace HalvernApi
