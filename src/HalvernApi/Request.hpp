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

// A place in a chain of calls where a debug build of an application may hook in. Returns `request`, a Request of any
// type or a pointer of any kind to one, unchanged, and does nothing else: `debugLog(request->validate())`. Any thread.
template <RequestOrPointer R>
R debugLog(R&& request) {
  return std::forward<R>(request);
}

}  // namespace HalvernApi
