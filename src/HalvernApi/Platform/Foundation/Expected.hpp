#pragma once

#include <tl/expected.hpp>

// Basic types for the rest of the library: errors, bytes, dates and the settings of a session.
namespace HalvernApi::Foundation {

// A value or an error, like std::expected of C++23: `if (result) use(*result); else report(result.error());`
template <class T, class E>
using Expected = tl::expected<T, E>;

// Wraps an error that is returned as an Expected: `return Unexpected<Error>(error);`
template <class E>
using Unexpected = tl::unexpected<E>;

// \cond
using tl::in_place, tl::unexpect;
// \endcond

// The value of a successful operation that has no other result. All values of this type are equal.
struct Unit {
  // \cond
  friend constexpr bool operator==(Unit, Unit) { return true; }
  // \endcond
};

}  // namespace HalvernApi::Foundation

namespace HalvernApi {
using Foundation::Expected;
using Foundation::Unexpected;
using Foundation::Unit;
}  // namespace HalvernApi
