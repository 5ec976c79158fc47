// The JSON value: Boost.JSON's, here by name only, so that a record's header costs next to nothing to include. Whoever
// looks into a value includes JsonCodec.hpp, which brings the whole type.
#pragma once

#include <boost/json/fwd.hpp>

namespace HalvernApi::Statham {

using JsonValue = boost::json::value;
using JsonObject = boost::json::object;

}  // namespace HalvernApi::Statham

namespace HalvernApi {
using Statham::JsonObject;
using Statham::JsonValue;
}  // namespace HalvernApi
