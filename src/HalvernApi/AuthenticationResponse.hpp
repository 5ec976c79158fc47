#pragma once

#include "HalvernApi/Platform/Foundation/Date.hpp"
#include "HalvernApi/Sex.hpp"

namespace HalvernApi {

// The answer to every way of signing in: the outcome, the tokens, and what the service knows of the user. The tokens
// are the caller's to keep. An immutable value: any thread.
class HALVERNAPI_EXPORT AuthenticationResponse {
 public:
  // For tests and fakes: nothing is checked.
  AuthenticationResponse(bool isSuccessful, bool isEmailConfirmed, std::string accessToken, std::string refreshToken,
                         std::optional<Date> dateOfBirth, std::optional<Sex> sex, std::string email)
      : isSuccessful_(isSuccessful),
        isEmailConfirmed_(isEmailConfirmed),
        accessToken_(std::move(accessToken)),
        refreshToken_(std::move(refreshToken)),
        dateOfBirth_(dateOfBirth),
        sex_(sex),
        email_(std::move(email)) {}

  // Whether the user is signed in, in the service's own word: an answer that says false is an answer like any other.
  bool isSuccessful() const { return isSuccessful_; }
  // Whether the user has opened the link in the confirmation e-mail.
  bool isEmailConfirmed() const { return isEmailConfirmed_; }
  // For the operations that act for the user, until the service refuses it. A secret.
  const std::string& accessToken() const { return accessToken_; }
  // For ApiService::relogin. A secret.
  const std::string& refreshToken() const { return refreshToken_; }
  // The user's, at midnight in this device's time zone where ApiService::update was given it so. Absent when the
  // service does not know it.
  const std::optional<Date>& dateOfBirth() const { return dateOfBirth_; }
  // The user's. Absent when the service says nothing; `Sex::unknown` when it says that it is not known.
  const std::optional<Sex>& sex() const { return sex_; }
  // The address of the account.
  const std::string& email() const { return email_; }

  // Reads an object with the fields' names as keys; `dateOfBirth` and `sex` may be missing or null, other keys are
  // ignored. Every bad key is reported at once.
  static Expected<AuthenticationResponse, JsonDecodeError> decodeJson(const JsonValue& json);
  // What `decodeJson` reads, with null for what is absent. It holds the tokens.
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

// Prints the two flags; tokens and personal data are elided.
HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const AuthenticationResponse&);

}  // namespace HalvernApi
