#pragma once

#include <boost/json/fwd.hpp>

namespace HalvernApi::Statham {

// The JSON value: Boost.JSON's, here by name only, so that a record's header costs next to nothing to include. Whoever
// looks into a value includes JsonCodec.hpp, which brings the whole type.
using JsonValue = boost::json::value;
// An object of JSON, whose members are in the order in which they were put in: what a request takes for its body.
using JsonObject = boost::json::object;

}  // namespace HalvernApi::Statham

namespace HalvernApi {
using Statham::JsonObject;
using Statham::JsonValue;
}  // namespace HalvernApi
