#pragma once

#include "HalvernApi/Platform/Foundation/Date.hpp"
#include "HalvernApi/Sex.hpp"

namespace HalvernApi {

// The answer to all operations that sign in: the outcome, the tokens, and the user's data that the service has stored.
// The caller stores the tokens. An immutable value: any thread.
class HALVERNAPI_EXPORT AuthenticationResponse {
 public:
  // For tests and fakes.
  AuthenticationResponse(bool isSuccessful, bool isEmailConfirmed, std::string accessToken, std::string refreshToken,
                         std::optional<Date> dateOfBirth, std::optional<Sex> sex, std::string email)
      : isSuccessful_(isSuccessful),
        isEmailConfirmed_(isEmailConfirmed),
        accessToken_(std::move(accessToken)),
        refreshToken_(std::move(refreshToken)),
        dateOfBirth_(dateOfBirth),
        sex_(sex),
        email_(std::move(email)) {}

  // False if the service did not sign the user in. The promise also succeeds in this case.
  bool isSuccessful() const { return isSuccessful_; }
  // Whether the user has opened the link in the confirmation e-mail.
  bool isEmailConfirmed() const { return isEmailConfirmed_; }
  // The secret for operations that take an `accessToken`. Valid until the service rejects it.
  const std::string& accessToken() const { return accessToken_; }
  // The secret for ApiService::relogin.
  const std::string& refreshToken() const { return refreshToken_; }
  // Absent if the service has not stored it. The service sends local time without an offset, which is read in this
  // device's time zone.
  const std::optional<Date>& dateOfBirth() const { return dateOfBirth_; }
  // Absent if the answer does not contain it; `Sex::unknown` if the answer contains "NotKnown".
  const std::optional<Sex>& sex() const { return sex_; }
  // The e-mail address of the account.
  const std::string& email() const { return email_; }

  // Reads an object whose keys are the names of the fields. `dateOfBirth` and `sex` may be missing or null. Other keys
  // are ignored. The error lists every bad key.
  static Expected<AuthenticationResponse, JsonDecodeError> decodeJson(const JsonValue& json);
  // Writes what `decodeJson` reads, including the tokens. Absent values are written as null.
  JsonObject encodeJson() const;

  friend bool operator==(const AuthenticationResponse&, const AuthenticationResponse&) = default;

 private:
  bool isSuccessful_;
  bool isEmailConfirmed_;
  std::string accessToken_;
  std::string refreshToken_;
  std::optional<Date> dateOfBirth_;
  std::optional<Sex> sex_;
  std::string email_;
};

// Prints the two flags, but no tokens and no personal data.
HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const AuthenticationResponse&);

}  // namespace HalvernApi
