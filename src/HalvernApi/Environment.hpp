#pragma once

#include <functional>
#include <string>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi {

// The library's one setting for the whole process: where its log lines go.
struct HALVERNAPI_EXPORT Environment {
  // Takes one line, without a line end. Empty, as it is from the start, means no logging. A call has two lines when it
  // starts, its method and URL and a curl command line without its secrets, and one when it ends, which begins with
  // "STATUS ", "ERROR " or "EMPTY RESPONSE ".
  //
  // Read without a lock each time
  // a line is due, on the threads that call operations and on completion queues: set it before the first call, and make
  // it safe to call from several threads. A copy of it runs, which may set it anew. When it throws, the line is lost.
  // No line holds a token, a key or a password. The hook is there before any object of the application, and until the
  // process is gone.
  static std::function<void(const std::string&)>& log;
};

}  // namespace HalvernApi
