// The answer to every way of signing in: the outcome, the tokens, and what the service knows of the user. An immutable
// value: any thread. The tokens are the caller's to keep: pass `accessToken` to the operations that act for the user,
// and `refreshToken` to `relogin`.
#pragma once

#include "HalvernApi/Platform/Foundation/Date.hpp"
#include "HalvernApi/Sex.hpp"

namespace HalvernApi {

class HALVERNAPI_EXPORT AuthenticationResponse {
 public:
  AuthenticationResponse(bool isSuccessful, bool isEmailConfirmed, std::string accessToken, std::string refreshToken,
                         std::optional<Date> dateOfBirth, std::optional<Sex> sex, std::string email)
      : isSuccessful_(isSuccessful),
        isEmailConfirmed_(isEmailConfirmed),
        accessToken_(std::move(accessToken)),
        refreshToken_(std::move(refreshToken)),
        dateOfBirth_(dateOfBirth),
        sex_(sex),
        email_(std::move(email)) {}

  // The service's own word: an answer that says false is an answer like any other.
  bool isSuccessful() const { return isSuccessful_; }
  bool isEmailConfirmed() const { return isEmailConfirmed_; }
  const std::string& accessToken() const { return accessToken_; }
  const std::string& refreshToken() const { return refreshToken_; }
  const std::optional<Date>& dateOfBirth() const { return dateOfBirth_; }
  const std::optional<Sex>& sex() const { return sex_; }
  const std::string& email() const { return email_; }

  static Expected<AuthenticationResponse, JsonDecodeError> decodeJson(const JsonValue& json);
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

// The two flags; tokens and personal data are elided.
HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const AuthenticationResponse&);

}  // namespace HalvernApi
