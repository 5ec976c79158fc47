// The body with which the service describes a rejected request. A plain value: any thread.
#pragma once

#include <cstdint>
#include <optional>

#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi {

class HALVERNAPI_EXPORT ServerErrorResponse {
 public:
  ServerErrorResponse(std::int64_t errorCode, std::optional<std::string> message,
                      std::optional<std::vector<std::string>> validationErrors)
      : errorCode_(errorCode), message_(std::move(message)), validationErrors_(std::move(validationErrors)) {}

  std::int64_t errorCode() const { return errorCode_; }
  const std::optional<std::string>& message() const { return message_; }
  const std::optional<std::vector<std::string>>& validationErrors() const { return validationErrors_; }

  void setErrorCode(std::int64_t errorCode) { errorCode_ = errorCode; }
  void setMessage(std::optional<std::string> message) { message_ = std::move(message); }
  void setValidationErrors(std::optional<std::vector<std::string>> validationErrors) {
    validationErrors_ = std::move(validationErrors);
  }

  static Expected<ServerErrorResponse, JsonDecodeError> decodeJson(const JsonValue& json);
  JsonObject encodeJson() const;

  friend bool operator==(const ServerErrorResponse&, const ServerErrorResponse&) = default;

 private:
  std::int64_t errorCode_;
  std::optional<std::string> message_;
  std::optional<std::vector<std::string>> validationErrors_;
};

// The code and the number of texts: the texts may quote what the user typed.
HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const ServerErrorResponse&);

}  // namespace HalvernApi
