#pragma once

#include <boost/json/object.hpp>

#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

namespace HalvernApi::Statham {

// Reads the keys of one JSON object and collects their errors, so that a record reports every bad key at once. For one
// thread at a time. The decoder refers to the JSON value, which must outlive it.
class HALVERNAPI_EXPORT JsonDecoder {
 public:
  // Fails with wrongType if `json` is not an object.
  static Decoded<JsonDecoder> make(const JsonValue& json);

  // `decode` maps a JSON value to a Decoded<T>. The result is absent if the key is missing or does not decode; `errors`
  // then has an error for the key.
  template <class F>
  auto required(std::string_view key, F decode) {
    const JsonValue* const value = find(key);
    if (value != nullptr) return file(key, decode(*value));
    return file<DecodedBy<F>>(key, Foundation::Unexpected<JsonDecodeError>(JsonDecodeError::missingKey()));
  }

  // `decode` maps a JSON value to a Decoded<std::optional<T>>. If the key is missing or null, the result is present and
  // empty. If it does not decode, the result is as for `required`.
  template <class F>
  auto optional(std::string_view key, F decode) {
    const JsonValue* const value = find(key);
    return value != nullptr ? file(key, decode(*value)) : std::optional<DecodedBy<F>>(std::in_place);
  }

  // The errors in the order in which the keys were read. The decoder owns them.
  const std::vector<JsonDecodeError::KeyError>& errors() const { return errors_; }

 private:
  explicit JsonDecoder(const JsonObject& object) : object_(&object), next_(object.begin()) {}

  const JsonValue* find(std::string_view key);

  template <class T>
  std::optional<T> file(std::string_view key, Decoded<T> decoded) {
    if (decoded) return *std::move(decoded);
    errors_.push_back({std::string(key), std::move(decoded).error()});
    return std::nullopt;
  }

  const JsonObject* object_;
  JsonObject::const_iterator next_;
  std::vector<JsonDecodeError::KeyError> errors_;
};

}  // namespace HalvernApi::Statham

namespace HalvernApi {
using Statham::JsonDecoder;
}  // namespace HalvernApi
