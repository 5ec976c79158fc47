// What an application's own tests do: a fake of the service. Only compiled, where neither libcurl's headers nor more of
// Boost.JSON than its forward declarations can be had.
#include <HalvernApi/ApiService.hpp>

using namespace HalvernApi;

struct FakeService : ApiService {
  using Text = std::string_view;
  using SignIn = Promise<AuthenticationResponse, Error>;
  using Done = Promise<Unit, Error>;

  SignIn login(Text email, Text, Text, Text) override {
    return SignIn::resolved({true, true, "access", "refresh", std::nullopt, Sex::female, std::string(email)});
  }
  SignIn relogin(Text, Text) override { return SignIn::rejected(Error::notAuthorized()); }
  SignIn register_(Text, Text, Text, Text, Text) override { return SignIn::rejected(Error::validationError("taken")); }
  SignIn authenticate(Text, Text, Text) override { return SignIn::rejected(Error::unknownJsonData()); }
  Done resendValidationEmail(Text) override { return Done::resolved({}); }
  Promise<ForgotPasswordResponse, Error> sendPasswordReset(Text) override {
    return Promise<ForgotPasswordResponse, Error>::resolved(ForgotPasswordResponse(true));
  }
  Promise<ValidatedEmailResponse, Error> checkIfValidated(Text) override {
    return Promise<ValidatedEmailResponse, Error>::resolved(ValidatedEmailResponse(true));
  }
  Done registerDevice(Text, Text, std::optional<Text>, Text, Text, Text, DeviceOrientation, Text) override {
    return Done::resolved({});
  }
  Promise<ConfigurationResponse, Error> profile(const std::vector<Audiogram>&, Text) override {
    return Promise<ConfigurationResponse, Error>::rejected(Error::notAuthorized());
  }
  Done update(Date, Sex, Text) override { return Done::resolved({}); }
};

bool signsIn(FakeService& service) {
  const auto answer = service.login("ada@example.com", "", "", "").map([](const auto& a) { return a.email(); }).get();
  return answer && *answer == "ada@example.com";
}
