#pragma once

#include "HalvernApi/Platform/Foundation/Data.hpp"
#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi {

// The fitting configurations that the service makes from audiograms, one for each ear. An immutable value: any thread.
class HALVERNAPI_EXPORT ConfigurationResponse {
 public:
  // For tests and fakes: nothing is checked.
  ConfigurationResponse(std::optional<std::string> leftConfiguration, std::optional<std::string> rightConfiguration)
      : leftConfiguration_(std::move(leftConfiguration)), rightConfiguration_(std::move(rightConfiguration)) {}

  // Base64, as it came. Absent when the service has no configuration for the left ear.
  const std::optional<std::string>& leftConfiguration() const { return leftConfiguration_; }
  // The same for the right ear.
  const std::optional<std::string>& rightConfiguration() const { return rightConfiguration_; }

  // The bytes for the left ear's hearing aid, decoded anew by each call. Absent when there is no configuration for it,
  // and likewise when its text is not Base64; empty for an empty text.
  std::optional<Data> leftData() const { return leftConfiguration_ ? decodeBase64(*leftConfiguration_) : std::nullopt; }
  // The same for the right ear.
  std::optional<Data> rightData() const {
    return rightConfiguration_ ? decodeBase64(*rightConfiguration_) : std::nullopt;
  }

  // Reads an object with the keys `leftConfiguration` and `rightConfiguration`, of which each may be missing or null;
  // other keys are ignored.
  static Expected<ConfigurationResponse, JsonDecodeError> decodeJson(const JsonValue& json);
  // What `decodeJson` reads, with null for what is absent.
  JsonObject encodeJson() const;

  friend bool operator==(const ConfigurationResponse&, const ConfigurationResponse&) = default;

 private:
  std::optional<std::string> leftConfiguration_;
  std::optional<std::string> rightConfiguration_;
};

// Prints how long each text is, not what it says.
HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const ConfigurationResponse&);

}  // namespace HalvernApi
