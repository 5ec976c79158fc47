// The library's one setting: where its log lines go.
#pragma once

#include <functional>
#include <string>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi {

struct HALVERNAPI_EXPORT Environment {
  // Takes one line, without a line end. Empty, as it is from the start, means no logging. Read without a lock each time
  // a line is due, on the threads that call operations and on completion queues: set it before the first call, and make
  // it safe to call from several threads. A copy of it runs, which may set it anew. When it throws, the line is lost.
  // No line holds a token, a key or a password. It is there before any object of the application, and until the process
  // is gone.
  static std::function<void(const std::string&)>& log;
};

}  // namespace HalvernApi
