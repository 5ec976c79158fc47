#pragma once

#include <functional>
#include <string>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi {

// The library's only setting for the whole process.
struct HALVERNAPI_EXPORT Environment {
  // The log hook. It is called for each line, without a line end. An empty hook, the default, means no logging. The
  // library logs two lines when a call starts: its method and URL, and a curl command line without its secrets. When
  // the call ends, the library logs one line that begins with "STATUS ", "ERROR " or "EMPTY RESPONSE ". No line
  // contains a token, a key or a password.
  //
  // The hook is called on the threads that call operations and on completion queues, so it must be safe to call from
  // several threads. The library reads this variable without a lock for each line: set it before the first call. The
  // library calls a copy of the hook, so the hook may replace itself. If the hook throws, the line is lost. The
  // variable exists before any object of the application is constructed and until the process has ended.
  static std::function<void(const std::string&)>& log;
};

}  // namespace HalvernApi
