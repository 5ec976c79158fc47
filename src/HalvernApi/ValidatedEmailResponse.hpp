// The answer to the question whether the e-mail address has been confirmed. An immutable value: any thread.
#pragma once

#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi {

class HALVERNAPI_EXPORT ValidatedEmailResponse {
 public:
  explicit ValidatedEmailResponse(bool result) : result_(result) {}

  bool result() const { return result_; }

  static Expected<ValidatedEmailResponse, JsonDecodeError> decodeJson(const JsonValue& json);
  JsonObject encodeJson() const;

  friend bool operator==(const ValidatedEmailResponse&, const ValidatedEmailResponse&) = default;

 private:
  bool result_;
};

HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const ValidatedEmailResponse&);

}  // namespace HalvernApi
