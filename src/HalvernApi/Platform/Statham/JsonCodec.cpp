#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

#include <cmath>
#include <utility>

namespace HalvernApi::Statham {
namespace {

Foundation::Unexpected<JsonDecodeError> wrongType(const JsonValue& json, const char* expected) {
  return Foundation::Unexpected<JsonDecodeError>(JsonDecodeError::wrongType(json, expected));
}

}  // namespace

Decoded<bool> JsonCodec<bool>::decodeJson(const JsonValue& json) {
  if (const bool* const value = json.if_bool()) return *value;
  return wrongType(json, "Bool");
}
JsonValue JsonCodec<bool>::encodeJson(bool value) { return value; }

Decoded<std::string> JsonCodec<std::string>::decodeJson(const JsonValue& json) {
  if (const boost::json::string* const value = json.if_string()) return std::string(value->data(), value->size());
  return wrongType(json, "String");
}
JsonValue JsonCodec<std::string>::encodeJson(std::string_view value) { return boost::json::string_view(value); }

Decoded<std::int64_t> JsonCodec<std::int64_t>::decodeJson(const JsonValue& json) {
  if (const std::int64_t* const value = json.if_int64()) return *value;
  if (const std::uint64_t* const value = json.if_uint64(); value != nullptr && std::in_range<std::int64_t>(*value))
    return static_cast<std::int64_t>(*value);
  if (const double* const value = json.if_double()) {
    // Two to the power of 63: the parser makes the same double, of either sign, of integers that do not fit.
    constexpr double limit = 9223372036854775808.0;
    if (std::abs(*value) < limit && std::trunc(*value) == *value) return static_cast<std::int64_t>(*value);
  }
  return wrongType(json, "Int");
}
JsonValue JsonCodec<std::int64_t>::encodeJson(std::int64_t value) { return value; }

Decoded<double> JsonCodec<double>::decodeJson(const JsonValue& json) {
  if (const double* const value = json.if_double(); value != nullptr && std::isfinite(*value)) return *value;
  if (const std::int64_t* const value = json.if_int64()) return static_cast<double>(*value);
  if (const std::uint64_t* const value = json.if_uint64()) return static_cast<double>(*value);
  return wrongType(json, "Double");
}
JsonValue JsonCodec<double>::encodeJson(double value) { return value; }

}  // namespace HalvernApi::Statham
