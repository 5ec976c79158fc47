#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

#include <cmath>

namespace HalvernApi::Statham {

template <class T>
Decoded<T> ScalarCodec<T>::decodeJson(const JsonValue& json) {
  const char* expected = "Bool";
  if constexpr (std::same_as<T, bool>) {
    if (json.is_bool()) return json.get_bool();
  } else if constexpr (std::same_as<T, std::string>) {
    expected = "String";
    if (json.is_string()) return std::string(json.get_string());
  } else if constexpr (std::same_as<T, std::int64_t>) {
    expected = "Int";
    // 2 to the power of 63. For an integer outside 64 bits, the parser may return this number or its negative.
    constexpr double limit = 9223372036854775808.0;
    if (json.is_int64()) return json.get_int64();
    if (json.is_uint64() && std::in_range<T>(json.get_uint64())) return static_cast<T>(json.get_uint64());
    if (const double* const value = json.if_double(); value && std::abs(*value) < limit && std::trunc(*value) == *value)
      return static_cast<T>(*value);
  } else {
    expected = "Double";
    if (json.is_int64()) return static_cast<double>(json.get_int64());
    if (json.is_uint64()) return static_cast<double>(json.get_uint64());
    if (json.is_double() && std::isfinite(json.get_double())) return json.get_double();
  }
  return Foundation::Unexpected<JsonDecodeError>(JsonDecodeError::wrongType(json, expected));
}

template <class T>
JsonValue ScalarCodec<T>::encodeJson(const T& value) {
  return JsonValue(value);
}

template struct ScalarCodec<bool>;
template struct ScalarCodec<std::string>;
template struct ScalarCodec<std::int64_t>;
template struct ScalarCodec<double>;

}  // namespace HalvernApi::Statham
