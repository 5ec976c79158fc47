// The JSON value: Boost.JSON's, here by name only, so that a record's header costs next to nothing to include. Whoever
// looks into a value includes JsonCodec.hpp, which brings the whole type.
#pragma once

#include <boost/json/fwd.hpp>

namespace HalvernApi::Statham {

using JsonValue = boost::json::value;
using JsonObject = boost::json::object;

// What a decoder may do with the values that it is given.
enum class JsonUse {
  keep,  // copy them, and keep the copies
  read,  // no more than read them while it runs: memory that goes when it returns holds them, and would hold copies
};

}  // namespace HalvernApi::Statham

namespace HalvernApi {
using Statham::JsonObject;
using Statham::JsonUse;
using Statham::JsonValue;
}  // namespace HalvernApi
