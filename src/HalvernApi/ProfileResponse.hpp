// The fitting configurations that the service makes from audiograms, one for each ear. An immutable value: any thread.
#pragma once

#include "HalvernApi/Platform/Foundation/Data.hpp"
#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi {

class HALVERNAPI_EXPORT ConfigurationResponse {
 public:
  ConfigurationResponse(std::optional<std::string> leftConfiguration, std::optional<std::string> rightConfiguration)
      : leftConfiguration_(std::move(leftConfiguration)), rightConfiguration_(std::move(rightConfiguration)) {}

  // Base64, as it came.
  const std::optional<std::string>& leftConfiguration() const { return leftConfiguration_; }
  const std::optional<std::string>& rightConfiguration() const { return rightConfiguration_; }

  // The bytes for the hearing aid, decoded anew by each call. Absent when there is no configuration for that ear, and
  // likewise when its text is not Base64.
  std::optional<Data> leftData() const { return leftConfiguration_ ? decodeBase64(*leftConfiguration_) : std::nullopt; }
  std::optional<Data> rightData() const {
    return rightConfiguration_ ? decodeBase64(*rightConfiguration_) : std::nullopt;
  }

  static Expected<ConfigurationResponse, JsonDecodeError> decodeJson(const JsonValue& json);
  JsonObject encodeJson() const;

  friend bool operator==(const ConfigurationResponse&, const ConfigurationResponse&) = default;

 private:
  std::optional<std::string> leftConfiguration_;
  std::optional<std::string> rightConfiguration_;
};

// How long each text is, not what it says.
HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const ConfigurationResponse&);

}  // namespace HalvernApi
