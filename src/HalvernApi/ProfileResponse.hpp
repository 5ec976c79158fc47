#pragma once

#include "HalvernApi/Platform/Foundation/Data.hpp"
#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi {

// The fitting configurations that the service computes from audiograms, one for each ear. An immutable value: any
// thread.
class HALVERNAPI_EXPORT ConfigurationResponse {
 public:
  // For tests and fakes.
  ConfigurationResponse(std::optional<std::string> leftConfiguration, std::optional<std::string> rightConfiguration)
      : leftConfiguration_(std::move(leftConfiguration)), rightConfiguration_(std::move(rightConfiguration)) {}

  // Base64, as received. Absent if the service has no configuration for the left ear.
  const std::optional<std::string>& leftConfiguration() const { return leftConfiguration_; }
  // The same for the right ear.
  const std::optional<std::string>& rightConfiguration() const { return rightConfiguration_; }

  // The bytes for the left ear's hearing aid. Each call decodes them. Absent if there is no configuration, or if its
  // text is not Base64. Empty if the text is empty.
  std::optional<Data> leftData() const { return leftConfiguration_ ? decodeBase64(*leftConfiguration_) : std::nullopt; }
  // The same for the right ear.
  std::optional<Data> rightData() const {
    return rightConfiguration_ ? decodeBase64(*rightConfiguration_) : std::nullopt;
  }

  // Reads an object with the keys `leftConfiguration` and `rightConfiguration`. Either may be missing or null. Other
  // keys are ignored.
  static Expected<ConfigurationResponse, JsonDecodeError> decodeJson(const JsonValue& json);
  // Writes what `decodeJson` reads. Absent values are written as null.
  JsonObject encodeJson() const;

  friend bool operator==(const ConfigurationResponse&, const ConfigurationResponse&) = default;

 private:
  std::optional<std::string> leftConfiguration_;
  std::optional<std::string> rightConfiguration_;
};

// Prints the length of each text, but not the text.
HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const ConfigurationResponse&);

}  // namespace HalvernApi
