#pragma once

#include <boost/json/fwd.hpp>

namespace HalvernApi::Statham {

// The JSON value of Boost.JSON. It is only declared here, so that the headers of records compile quickly. Code that
// reads a value includes JsonCodec.hpp, which includes the definition.
using JsonValue = boost::json::value;
// A JSON object, for example the body of a request. Its members keep the order in which they were added.
using JsonObject = boost::json::object;

}  // namespace HalvernApi::Statham

namespace HalvernApi {
using Statham::JsonObject;
using Statham::JsonValue;
}  // namespace HalvernApi
