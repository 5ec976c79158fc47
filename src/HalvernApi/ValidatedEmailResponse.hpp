#pragma once

#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi {

// The answer of ApiService::checkIfValidated. An immutable value: any thread.
class HALVERNAPI_EXPORT ValidatedEmailResponse {
 public:
  // For tests and fakes.
  explicit ValidatedEmailResponse(bool result) : result_(result) {}

  // Whether the user has opened the link in the confirmation e-mail.
  bool result() const { return result_; }

  // Reads `{"result": true}`; other keys are ignored.
  static Expected<ValidatedEmailResponse, JsonDecodeError> decodeJson(const JsonValue& json);
  // Writes what `decodeJson` reads.
  JsonObject encodeJson() const;

  friend bool operator==(const ValidatedEmailResponse&, const ValidatedEmailResponse&) = default;

 private:
  bool result_;
};

// Prints the type and the result.
HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const ValidatedEmailResponse&);

}  // namespace HalvernApi
