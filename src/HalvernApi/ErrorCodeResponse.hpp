#pragma once

#include <cstdint>
#include <optional>

#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi {

// The body with which the service describes a rejected request. Error makes `validationError` of it; an application
// needs it for endpoints of its own. A plain value: any thread.
class HALVERNAPI_EXPORT ServerErrorResponse {
 public:
  // For tests and fakes: nothing is checked.
  ServerErrorResponse(std::int64_t errorCode, std::optional<std::string> message,
                      std::optional<std::vector<std::string>> validationErrors)
      : errorCode_(errorCode), message_(std::move(message)), validationErrors_(std::move(validationErrors)) {}

  // The service's own number.
  std::int64_t errorCode() const { return errorCode_; }
  // What is wrong with the request as a whole; absent when the service says nothing of it.
  const std::optional<std::string>& message() const { return message_; }
  // What is wrong with its fields, in words for the user, which may quote what the user typed. Absent or empty when no
  // field is to blame.
  const std::optional<std::vector<std::string>>& validationErrors() const { return validationErrors_; }

  // Replaces `errorCode()`.
  void setErrorCode(std::int64_t errorCode) { errorCode_ = errorCode; }
  // Replaces `message()`.
  void setMessage(std::optional<std::string> message) { message_ = std::move(message); }
  // Replaces `validationErrors()`.
  void setValidationErrors(std::optional<std::vector<std::string>> validationErrors) {
    validationErrors_ = std::move(validationErrors);
  }

  // Reads an object with the fields' names as keys, of which only `errorCode` is needed; other keys are ignored. Every
  // bad key is reported at once.
  static Expected<ServerErrorResponse, JsonDecodeError> decodeJson(const JsonValue& json);
  // What `decodeJson` reads, with null for what is absent.
  JsonObject encodeJson() const;

  friend bool operator==(const ServerErrorResponse&, const ServerErrorResponse&) = default;

 private:
  std::int64_t errorCode_;
  std::optional<std::string> message_;
  std::optional<std::vector<std::string>> validationErrors_;
};

// Prints the code and the number of texts: the texts may quote what the user typed.
HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const ServerErrorResponse&);

}  // namespace HalvernApi
