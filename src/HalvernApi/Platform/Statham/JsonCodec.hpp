// How a value of each type is read from JSON and written as JSON. Free of state: any thread.
#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "HalvernApi/Platform/Foundation/Expected.hpp"
#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi::Statham {

template <class T>
using Decoded = Foundation::Expected<T, JsonDecodeError>;

// By default a type's own members.
template <class T>
struct JsonCodec {
  static Decoded<T> decodeJson(const JsonValue& json) { return T::decodeJson(json); }
  static JsonValue encodeJson(const T& value) { return JsonValue(value.encodeJson()); }
};

// Takes booleans only.
template <>
struct HALVERNAPI_EXPORT JsonCodec<bool> {
  static Decoded<bool> decodeJson(const JsonValue& json);
  static JsonValue encodeJson(bool value);
};

template <>
struct HALVERNAPI_EXPORT JsonCodec<std::string> {
  static Decoded<std::string> decodeJson(const JsonValue& json);
  static JsonValue encodeJson(std::string_view value);
};

// Takes integers within 64 bits, and doubles with an integral value nearer to zero than two to the power of 63.
template <>
struct HALVERNAPI_EXPORT JsonCodec<std::int64_t> {
  static Decoded<std::int64_t> decodeJson(const JsonValue& json);
  static JsonValue encodeJson(std::int64_t value);
};

// Takes every number that a double can hold, if only roughly; not one beyond its range.
template <>
struct HALVERNAPI_EXPORT JsonCodec<double> {
  static Decoded<double> decodeJson(const JsonValue& json);
  static JsonValue encodeJson(double value);
};

// Null is absent.
template <class T>
struct JsonCodec<std::optional<T>> {
  static Decoded<std::optional<T>> decodeJson(const JsonValue& json) {
    if (json.is_null()) return std::optional<T>();
    return JsonCodec<T>::decodeJson(json).map([](T&& value) { return std::optional<T>(std::move(value)); });
  }
  static JsonValue encodeJson(const std::optional<T>& value) {
    return value ? JsonValue(JsonCodec<T>::encodeJson(*value)) : JsonValue(nullptr);
  }
};

// Reports every bad element with its index, though never more than a thousand: what is wrong with an answer must not
// take up many times the room of the answer.
template <class T>
struct JsonCodec<std::vector<T>> {
  static constexpr std::size_t mostErrors = 1000;

  static Decoded<std::vector<T>> decodeJson(const JsonValue& json) {
    const boost::json::array* const array = json.if_array();
    if (array == nullptr) return Foundation::Unexpected<JsonDecodeError>(JsonDecodeError::wrongType(json, "Array"));
    std::vector<T> values;
    std::vector<JsonDecodeError::ElementError> errors;
    values.reserve(array->size());
    for (std::size_t index = 0; index < array->size() && errors.size() < mostErrors; ++index) {
      auto element = JsonCodec<T>::decodeJson((*array)[index]);
      if (element)
        values.push_back(*std::move(element));
      else
        errors.push_back({index, std::move(element).error()});
    }
    if (errors.empty()) return values;
    return Foundation::Unexpected<JsonDecodeError>(JsonDecodeError::arrayElementErrors(std::move(errors)));
  }
  static JsonValue encodeJson(const std::vector<T>& values) {
    boost::json::array array;
    array.reserve(values.size());
    for (const T& value : values) array.push_back(JsonCodec<T>::encodeJson(value));
    return array;
  }
};

}  // namespace HalvernApi::Statham

namespace HalvernApi {
using Statham::JsonCodec;
}  // namespace HalvernApi
