#pragma once

#include <boost/json/fwd.hpp>

namespace HalvernApi::Statham {

// The JSON value of Boost.JSON. It is only declared here, so that including the header of a record costs little. Code
// that reads a value includes JsonCodec.hpp, which has the whole type.
using JsonValue = boost::json::value;
// A JSON object. Its members keep the order in which they were added. The body of a request is one.
using JsonObject = boost::json::object;

}  // namespace HalvernApi::Statham

namespace HalvernApi {
using Statham::JsonObject;
using Statham::JsonValue;
}  // namespace HalvernApi
