#pragma once

#include <boost/json/object.hpp>

#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

namespace HalvernApi::Statham {

// Reads the keys of one JSON object and collects their errors, so that a record reports every bad key at once. For one
// thread at a time. The JSON value must outlive the decoder, which refers to it.
class HALVERNAPI_EXPORT JsonDecoder {
 public:
  // Fails with wrongType if `json` is not an object.
  static Decoded<JsonDecoder> make(const JsonValue& json);

  // Reads a required key. `decode` maps a JSON value to a Decoded<T>. The result is absent if the key is missing or if
  // `decode` fails; `errors` then contains an error for the key.
  template <class F>
  auto required(std::string_view key, F decode) {
    const JsonValue* const value = find(key);
    if (value != nullptr) return file(key, decode(*value));
    return file<DecodedBy<F>>(key, Foundation::Unexpected<JsonDecodeError>(JsonDecodeError::missingKey()));
  }

  // Reads an optional key. `decode` maps a JSON value, which may be null, to a Decoded<std::optional<T>>. If the key is
  // missing, the result is present and contains an empty std::optional<T>. If `decode` fails, the result is absent as
  // in `required`.
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
