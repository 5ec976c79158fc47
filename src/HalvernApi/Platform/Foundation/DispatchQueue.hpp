#pragma once

#include <functional>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi::Foundation {

// Where completion handlers run: an application hands in its own main loop by deriving from this, and setting
// URLSessionConfiguration::completionQueue.
class HALVERNAPI_EXPORT DispatchQueue {
 public:
  virtual ~DispatchQueue();

  // Runs `task` soon, after those handed over before it, and returns at once. Called from any thread, the session's I/O
  // thread included, so it must not block; it must not throw. Running `task` inside the call is allowed only to a queue
  // whose tasks may hold up the network, and never wait for a call. Tasks still come after a session was destroyed, for
  // the calls that this cancelled. A task that is dropped leaves its handlers unrun.
  virtual void async(std::function<void()> task) = 0;
};

}  // namespace HalvernApi::Foundation

namespace HalvernApi {
using Foundation::DispatchQueue;
}  // namespace HalvernApi
