#pragma once

#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi {

// The answer of ApiService::sendPasswordReset. An immutable value: any thread.
class HALVERNAPI_EXPORT ForgotPasswordResponse {
 public:
  // For tests and fakes.
  explicit ForgotPasswordResponse(bool result) : result_(result) {}

  // Whether the service has sent the e-mail.
  bool result() const { return result_; }

  // Reads `{"result": true}`; other keys are ignored.
  static Expected<ForgotPasswordResponse, JsonDecodeError> decodeJson(const JsonValue& json);
  // Writes what `decodeJson` reads.
  JsonObject encodeJson() const;

  friend bool operator==(const ForgotPasswordResponse&, const ForgotPasswordResponse&) = default;

 private:
  bool result_;
};

// Prints the type and the result.
HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const ForgotPasswordResponse&);

}  // namespace HalvernApi
