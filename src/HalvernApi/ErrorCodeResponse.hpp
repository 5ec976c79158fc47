#pragma once

#include <cstdint>
#include <optional>

#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi {

// The body in which the service explains why it rejected a request. Error converts it to a `validationError`.
// Applications need this class only for endpoints that ApiService does not have. A plain value: any thread.
class HALVERNAPI_EXPORT ServerErrorResponse {
 public:
  // For tests and fakes.
  ServerErrorResponse(std::int64_t errorCode, std::optional<std::string> message,
                      std::optional<std::vector<std::string>> validationErrors)
      : errorCode_(errorCode), message_(std::move(message)), validationErrors_(std::move(validationErrors)) {}

  // The service's number for the reason.
  std::int64_t errorCode() const { return errorCode_; }
  // What is wrong with the request as a whole. May be absent.
  const std::optional<std::string>& message() const { return message_; }
  // What is wrong with the fields of the request: texts for the user, which may quote the user's input. Absent or empty
  // if all fields are valid.
  const std::optional<std::vector<std::string>>& validationErrors() const { return validationErrors_; }

  void setErrorCode(std::int64_t errorCode) { errorCode_ = errorCode; }
  void setMessage(std::optional<std::string> message) { message_ = std::move(message); }
  void setValidationErrors(std::optional<std::vector<std::string>> validationErrors) {
    validationErrors_ = std::move(validationErrors);
  }

  // Reads an object whose keys are the names of the fields. Only `errorCode` is required. Other keys are ignored. The
  // error lists every bad key.
  static Expected<ServerErrorResponse, JsonDecodeError> decodeJson(const JsonValue& json);
  // Writes what `decodeJson` reads. Absent values are written as null.
  JsonObject encodeJson() const;

  friend bool operator==(const ServerErrorResponse&, const ServerErrorResponse&) = default;

 private:
  std::int64_t errorCode_;
  std::optional<std::string> message_;
  std::optional<std::vector<std::string>> validationErrors_;
};

// Prints the code and the number of texts, but not the texts, which may quote the user's input.
HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const ServerErrorResponse&);

}  // namespace HalvernApi
