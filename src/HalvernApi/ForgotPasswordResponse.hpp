// The answer to a request for a password reset. An immutable value: any thread.
#pragma once

#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi {

class HALVERNAPI_EXPORT ForgotPasswordResponse {
 public:
  explicit ForgotPasswordResponse(bool result) : result_(result) {}

  bool result() const { return result_; }

  static Expected<ForgotPasswordResponse, JsonDecodeError> decodeJson(const JsonValue& json);
  JsonObject encodeJson() const;

  friend bool operator==(const ForgotPasswordResponse&, const ForgotPasswordResponse&) = default;

 private:
  bool result_;
};

HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const ForgotPasswordResponse&);

}  // namespace HalvernApi
