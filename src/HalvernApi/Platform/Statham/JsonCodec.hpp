#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>

#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

// JSON values, and the functions that read each type from JSON and write it as JSON.
namespace HalvernApi::Statham {

// The result of a decoder.
template <class T>
using Decoded = Foundation::Expected<T, JsonDecodeError>;

// Reads a value of type T from JSON and writes it as JSON. T is bool, std::string, std::int64_t, double, Date, any type
// that has `decodeJson` and `encodeJson`, or a std::optional or std::vector of one of these types. Any thread.
//
// A bool accepts only booleans. An integer accepts numbers without a fraction within signed 64 bits. If the number has
// a decimal point or an exponent, its magnitude must be less than 2 to the power of 63. A double accepts every number
// in its range and rounds it if necessary. An optional is absent for null. A vector accepts arrays and reports bad
// elements as `arrayDecoder` does.
template <class T>
struct JsonCodec {
  static_assert(!std::is_arithmetic_v<T>,
                "The numbers of JSON are read as std::int64_t and double: convert from there");

  // Fails with wrongType or with the error of `T::decodeJson`.
  static Decoded<T> decodeJson(const JsonValue& json) { return T::decodeJson(json); }
  // Returns JSON that `decodeJson` reads.
  static JsonValue encodeJson(const T& value) { return JsonValue(value.encodeJson()); }
};

// \cond
// The codec of JSON's booleans, strings and numbers.
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

// The type of the values that the decoder `F` reads.
template <class F>
using DecodedBy = typename std::invoke_result_t<F&, const JsonValue&>::value_type;
// \endcond

// Returns a decoder that reads null as an absent value and passes all other JSON to `decode`.
template <class F>
auto optionalDecoder(F decode) {
  return [decode = std::move(decode)](const JsonValue& json) -> Decoded<std::optional<DecodedBy<F>>> {
    if (json.is_null()) return std::optional<DecodedBy<F>>();
    return decode(json).map([](auto value) { return std::optional<DecodedBy<F>>(std::move(value)); });
  };
}

// Returns `encode(*value)`, or null if the value is absent.
template <class T, class F>
JsonValue encodeOptional(const std::optional<T>& value, F encode) {
  return value ? JsonValue(encode(*value)) : JsonValue(nullptr);
}

// Returns a decoder of arrays that calls `decode` for each element. It reports every bad element with its index, but
// stops after 1,000 errors to limit their memory.
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

// Returns a JSON array of `encode(value)` for each value, in the same order.
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
