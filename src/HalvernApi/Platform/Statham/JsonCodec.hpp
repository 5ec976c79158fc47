#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>

#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

// JSON: values, and how each type is read from them and written as them.
namespace HalvernApi::Statham {

// What a decoder gives.
template <class T>
using Decoded = Foundation::Expected<T, JsonDecodeError>;

// How a value of type T is read from JSON and written as JSON: bool, std::string, std::int64_t, double, Date,
// std::optional and std::vector of those, and any type with `decodeJson` and `encodeJson` of its own. Free of state:
// any thread.
//
// A bool takes booleans only; an integer integers within 64 bits, and doubles with an integral value nearer to zero
// than two to the power of 63; a double every number that it can hold, if only roughly. An optional is absent for null.
// A vector takes arrays and reports every bad element.
template <class T>
struct JsonCodec {
  static_assert(!std::is_arithmetic_v<T>,
                "The numbers of JSON are read as std::int64_t and double: convert from there");

  // Fails with wrongType, or as `T::decodeJson` does.
  static Decoded<T> decodeJson(const JsonValue& json) { return T::decodeJson(json); }
  // What `decodeJson` reads.
  static JsonValue encodeJson(const T& value) { return JsonValue(value.encodeJson()); }
};

// \cond
// What JSON has by itself.
template <class T>
struct HALVERNAPI_EXPORT ScalarCodec {
  static Decoded<T> decodeJson(const JsonValue& json);
  static JsonValue encodeJson(const T& value);
};

template <>
struct JsonCodec<bool> : ScalarCodec<bool> {};
template <>
struct JsonCodec<std::string> : ScalarCodec<std::string> {};
template <>
struct JsonCodec<std::int64_t> : ScalarCodec<std::int64_t> {};
template <>
struct JsonCodec<double> : ScalarCodec<double> {};

// What the decoder `F` reads.
template <class F>
using DecodedBy = typename std::invoke_result_t<F&, const JsonValue&>::value_type;
// \endcond

// A decoder of what `decode` reads, for which null is absent.
template <class F>
auto optionalDecoder(F decode) {
  return [decode = std::move(decode)](const JsonValue& json) -> Decoded<std::optional<DecodedBy<F>>> {
    if (json.is_null()) return std::optional<DecodedBy<F>>();
    return decode(json).map([](auto value) { return std::optional<DecodedBy<F>>(std::move(value)); });
  };
}

// What `encode` makes of the value; null when it is absent.
template <class T, class F>
JsonValue encodeOptional(const std::optional<T>& value, F encode) {
  return value ? JsonValue(encode(*value)) : JsonValue(nullptr);
}

// A decoder of arrays of what `decode` reads. Reports every bad element with its index, though never more than a
// thousand: what is wrong with an answer must not take up many times the room of the answer.
template <class F>
auto arrayDecoder(F decode) {
  return [decode = std::move(decode)](const JsonValue& json) -> Decoded<std::vector<DecodedBy<F>>> {
    constexpr std::size_t maxErrors = 1000;
    const boost::json::array* const array = json.if_array();
    if (array == nullptr) return Foundation::Unexpected<JsonDecodeError>(JsonDecodeError::wrongType(json, "Array"));
    std::vector<DecodedBy<F>> values;
    std::vector<JsonDecodeError::ElementError> errors;
    values.reserve(array->size());
    for (std::size_t index = 0; index < array->size() && errors.size() < maxErrors; ++index) {
      auto element = decode((*array)[index]);
      if (element)
        values.push_back(*std::move(element));
      else
        errors.push_back({index, std::move(element).error()});
    }
    if (errors.empty()) return values;
    return Foundation::Unexpected<JsonDecodeError>(JsonDecodeError::arrayElementErrors(std::move(errors)));
  };
}

// An array of what `encode` makes of each value, in their order.
template <class T, class F>
JsonValue encodeArray(const std::vector<T>& values, F encode) {
  boost::json::array array;
  array.reserve(values.size());
  for (const T& value : values) array.emplace_back(encode(value));
  return array;
}

// \cond
template <class T>
struct JsonCodec<std::optional<T>> {
  static auto decodeJson(const JsonValue& json) { return optionalDecoder(JsonCodec<T>::decodeJson)(json); }
  static JsonValue encodeJson(const std::optional<T>& value) { return encodeOptional(value, JsonCodec<T>::encodeJson); }
};

template <class T>
struct JsonCodec<std::vector<T>> {
  static auto decodeJson(const JsonValue& json) { return arrayDecoder(JsonCodec<T>::decodeJson)(json); }
  static JsonValue encodeJson(const std::vector<T>& values) { return encodeArray(values, JsonCodec<T>::encodeJson); }
};
// \endcond

}  // namespace HalvernApi::Statham

namespace HalvernApi {
using Statham::arrayDecoder;
using Statham::Decoded;
using Statham::encodeArray;
using Statham::encodeOptional;
using Statham::JsonCodec;
using Statham::optionalDecoder;
}  // namespace HalvernApi
