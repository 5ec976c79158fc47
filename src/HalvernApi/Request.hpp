#pragma once

#include <concepts>

#include "HalvernApi/Platform/Alamofire/SessionManager.hpp"

namespace HalvernApi {

// \cond
template <class T>
concept RequestOrPointer = std::derived_from<std::remove_cvref_t<T>, Request> || requires(const T& pointer) {
  requires std::derived_from<std::remove_cvref_t<decltype(*pointer)>, Request>;
};
// \endcond

// Returns its argument, a Request or any kind of pointer to one, and does nothing else. In a chain of calls, it is a
// place for a breakpoint or a hook of a debug build: `debugLog(request->validate())`. Any thread.
template <RequestOrPointer R>
R debugLog(R&& request) {
  return std::forward<R>(request);
}

}  // namespace HalvernApi
