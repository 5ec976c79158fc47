// A place in a chain of calls on a request where a debug build of an application may hook in.
#pragma once

namespace HalvernApi {

// Returns `request`, any pointer to a request, unchanged, and does nothing else.
template <class RequestPointer>
const RequestPointer& debugLog(const RequestPointer& request) {
  return request;
}

}  // namespace HalvernApi
