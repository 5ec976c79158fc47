#pragma once

#include <tl/expected.hpp>

// What everything else stands on: errors, bytes, dates, and the settings of a session.
namespace HalvernApi::Foundation {

// A value or the error in its place, as std::expected of C++23: `if (result) use(*result); else
// report(result.error());`
template <class T, class E>
using Expected = tl::expected<T, E>;

// An error on its way into an Expected: `return Unexpected<Error>(error);`
template <class E>
using Unexpected = tl::unexpected<E>;

// \cond
using tl::in_place, tl::unexpect;
// \endcond

// The value of an operation that has nothing to tell but that it succeeded. All are equal.
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
