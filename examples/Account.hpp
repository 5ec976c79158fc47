// An account of an application. Renews the tokens, and converts birth dates to calendar days. The calls block, so use a
// worker thread. For one thread at a time.
#pragma once

#include <HalvernApi/HalvernApi.hpp>

// [birthdate]
// Returns midnight of `day`, such as "1980-05-17", in this device's time zone. Absent if the day does not exist.
inline std::optional<HalvernApi::Date> dateOf(const std::string& day) {
  const auto date = HalvernApi::decodeDate(HalvernApi::JsonValue(day + "T00:00:00"));
  return date ? std::optional(*date) : std::nullopt;
}

// Returns the calendar day of `date` in this device's time zone.
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
  // Makes a call with the access token. If the service refuses the token, signs in with the refresh token and repeats
  // the call.
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
