// The value-or-error type of the whole library and its empty value.
#pragma once

#include <tl/expected.hpp>

namespace HalvernApi::Foundation {

template <class T, class E>
using Expected = tl::expected<T, E>;

template <class E>
using Unexpected = tl::unexpected<E>;

using tl::in_place, tl::unexpect;

// The value of an operation that has nothing to tell but that it succeeded.
struct Unit {
  friend constexpr bool operator==(Unit, Unit) { return true; }
};

}  // namespace HalvernApi::Foundation

namespace HalvernApi {
using Foundation::Expected;
using Foundation::Unexpected;
using Foundation::Unit;
}  // namespace HalvernApi
