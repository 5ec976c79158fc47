// The user's account as an application may hold it: the tokens, kept fresh, and the birth date as a day of the
// calendar. Its calls block, so they belong on a worker thread; for one thread at a time.
#pragma once

#include <HalvernApi/HalvernApi.hpp>

// [birthdate]
// The day, such as "1980-05-17", at midnight in this device's time zone. Absent when there is no such day.
inline std::optional<HalvernApi::Date> dateOf(const std::string& day) {
  const auto date = HalvernApi::decodeDate(HalvernApi::JsonValue(day + "T00:00:00"));
  return date ? std::optional(*date) : std::nullopt;
}

// The day that a date falls on in this device's time zone.
inline std::string dayOf(HalvernApi::Date date) {
  const std::string text = HalvernApi::encodeDate(date);
  return text.substr(0, text.find('T'));
}
// [birthdate]

class Account {
 public:
  using Error = HalvernApi::Error;
  template <class T>
  using Result = HalvernApi::Expected<T, Error>;

  Account(HalvernApi::ApiService& service, std::string appInstanceId, HalvernApi::AuthenticationResponse signIn)
      : service_(service), appInstanceId_(std::move(appInstanceId)), signIn_(std::move(signIn)) {}

  Result<bool> isConfirmed() {
    return withToken([this](const std::string& token) { return service_.checkIfValidated(token); })
        .map([](const HalvernApi::ValidatedEmailResponse& answer) { return answer.result(); });
  }

  Result<HalvernApi::Unit> store(HalvernApi::Date birthdate, HalvernApi::Sex sex) {
    return withToken([&](const std::string& token) { return service_.update(birthdate, sex, token); });
  }

 private:
  // [relogin]
  // Makes a call with the access token. When the service refuses the token, signs in again with the refresh token and
  // makes the call once more.
  template <class Call>
  auto withToken(Call call) -> decltype(call(std::string()).get()) {
    auto result = call(signIn_.accessToken()).get();
    if (result || result.error().kind() != Error::Case::notAuthorized) return result;
    auto again = service_.relogin(signIn_.refreshToken(), appInstanceId_).get();
    if (!again) return HalvernApi::Unexpected<Error>(again.error());
    if (!again->isSuccessful()) return result;
    signIn_ = *std::move(again);  // both tokens are new: store them before anything else
    return call(signIn_.accessToken()).get();
  }
  // [relogin]

  HalvernApi::ApiService& service_;
  std::string appInstanceId_;
  HalvernApi::AuthenticationResponse signIn_;
};
