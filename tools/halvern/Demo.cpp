#include "Demo.hpp"

#include <HalvernApi/HalvernApi.hpp>
#include <HalvernApi/Testing/Sandbox.hpp>
#include <cstdio>

#include "Chart.hpp"

using namespace HalvernApi;

namespace {

// What a step came to, in words, and whether that is what should happen.
struct Outcome {
  bool expected;
  std::string words;
};

Outcome outcome(const Error& error, Error::Case expected) {
  const std::string* const message = error.validationMessage();
  return {error.kind() == expected, error.description() + (message != nullptr ? "\n      \"" + *message + '"' : "")};
}

// Prints steps. All goes through the one stream to which the library prints the bodies, so the order is that of events.
class Steps {
 public:
  // `judge` maps the result, an Expected, to an Outcome. The name is printed first, then comes the body that the
  // library prints, then what the caller gets.
  template <class Call, class Judge>
  auto take(const char* name, Call call, Judge judge) {
    std::printf("\n%2d %s\n", ++count_, name);
    const auto start = std::chrono::steady_clock::now();
    auto result = call().get();
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
    const Outcome outcome = judge(result);
    std::printf("   %.1f ms -> %s%s\n", taken.count(), outcome.words.c_str(),
                outcome.expected ? "" : "  NOT AS EXPECTED");
    std::fflush(stdout);
    allExpected_ = allExpected_ && outcome.expected;
    return result;
  }

  // A step that should succeed, with a value that `describe` finds to be as expected.
  template <class Call, class Describe>
  auto succeed(const char* name, Call call, Describe describe) {
    return take(name, call, [&](const auto& result) {
      return result ? describe(*result) : Outcome{false, result.error().description()};
    });
  }

  template <class Call>
  void fail(const char* name, Call call, Error::Case expected) {
    take(name, call, [&](const auto& result) {
      return result ? Outcome{false, "a success"} : outcome(result.error(), expected);
    });
  }

  bool allExpected() const { return allExpected_; }

 private:
  int count_ = 0;
  bool allExpected_ = true;
};

std::string dump(const std::optional<Data>& data) {
  if (!data) return "none";
  std::string text = std::to_string(data->size()) + " bytes";
  for (std::size_t i = 0; i < data->size(); ++i) {
    char hex[3];
    std::snprintf(hex, sizeof hex, "%02x", std::to_integer<unsigned>((*data)[i]));
    text += (i % 24 == 0 ? "\n      " : " ") + std::string(hex);
  }
  return text + "\n      as text: " + std::string(Foundation::textOf(*data));
}

}  // namespace

bool demo() {
  const std::string email = "anna@example.com", password = "correct horse", id = "demo-1", device = "Demo";
  const Date birthdate(std::chrono::sys_days(std::chrono::year(1980) / 5 / 17) + std::chrono::hours(12));
  Testing::Sandbox sandbox;
  HttpApiService service(sandbox.baseUrl(), {}, sandbox.apiKey());
  std::printf(
      "One account through all ten operations, against a sandbox at %s.\n"
      "Under each operation: the answer's body, as the library prints it, and what the caller gets.\n",
      sandbox.baseUrl().c_str());

  Steps steps;
  const auto signIn = [&](bool confirmed) {
    return [&, confirmed](const AuthenticationResponse& answer) {
      return Outcome{answer.isSuccessful() && answer.isEmailConfirmed() == confirmed && !answer.accessToken().empty(),
                     "signed in as " + answer.email() +
                         (answer.isEmailConfirmed() ? ", address confirmed" : ", address not confirmed") +
                         (answer.dateOfBirth() ? ", born " + encodeDate(*answer.dateOfBirth()) : "") +
                         (answer.sex() ? ", " + answer.sex()->encodeJson() : "")};
    };
  };
  const auto done = [](Unit) { return Outcome{true, "done"}; };
  const auto validated = [](bool expected) {
    return [expected](const ValidatedEmailResponse& answer) {
      return Outcome{answer.result() == expected, answer.result() ? "confirmed" : "not confirmed"};
    };
  };

  const auto account = steps.succeed(
      "register_", [&] { return service.register_(email, password, password, id, device); }, signIn(false));
  std::string token = account ? account->accessToken() : "";
  steps.succeed(
      "resendValidationEmail", [&] { return service.resendValidationEmail(token); }, done);
  steps.succeed(
      "checkIfValidated", [&] { return service.checkIfValidated(token); }, validated(false));
  std::printf("\n   (the user follows the link in the e-mail: %s)\n",
              sandbox.confirmationLink(email).value_or("there is none").c_str());
  sandbox.confirmEmail(email);
  steps.succeed(
      "checkIfValidated", [&] { return service.checkIfValidated(token); }, validated(true));

  const auto login = steps.succeed(
      "login", [&] { return service.login(email, password, id, device); }, signIn(true));
  const std::string refreshToken = login ? login->refreshToken() : "";
  const auto again = steps.succeed(
      "relogin", [&] { return service.relogin(refreshToken, id); }, signIn(true));
  token = again ? again->accessToken() : "";
  steps.succeed(
      "authenticate", [&] { return service.authenticate("sandbox-facebook-token", id, device); }, signIn(true));

  for (const auto& [ear, serialNumber] : {std::pair(DeviceOrientation::left, std::optional<std::string_view>("L-1001")),
                                          std::pair(DeviceOrientation::right, std::optional<std::string_view>())})
    steps.succeed(
        serialNumber ? "registerDevice, left, with a serial number" : "registerDevice, right, without one",
        [&, ear = ear, serialNumber = serialNumber] {
          return service.registerDevice(id, "Clarity 3", serialNumber, "2.1", "4.0.7", "Slim 0.9", ear, token);
        },
        done);

  const std::vector<Audiogram> audiograms{
      {DeviceOrientation::left,
       "L-1001",
       "Slim 0.9",
       {{125, 10}, {250, 15}, {500, 20}, {1000, 30}, {2000, 45}, {3000, 55}, {4000, 60}, {6000, 70}, {8000, 75}}},
      {DeviceOrientation::right,
       "R-1002",
       "Slim 0.9",
       {{125, 5}, {250, 10}, {500, 20}, {1000, 25}, {2000, 35.5}, {3000, 40}, {4000, 50}, {6000, 55}, {8000, 60}}}};
  std::printf("\n   The audiograms that are sent next:\n\n%s", textChart(audiograms, 80, false).c_str());
  steps.succeed(
      "profile", [&] { return service.profile(audiograms, token); },
      [](const ConfigurationResponse& answer) {
        return Outcome{answer.leftData() && answer.rightData() && answer.leftData() != answer.rightData(),
                       "left ear, " + dump(answer.leftData()) + "\n      right ear, " + dump(answer.rightData())};
      });
  steps.succeed(
      "update", [&] { return service.update(birthdate, Sex::female, token); }, done);
  steps.succeed(
      "login, with what was stored", [&] { return service.login(email, password, id, device); },
      [&](const AuthenticationResponse& answer) {
        Outcome outcome = signIn(true)(answer);
        outcome.expected = outcome.expected && answer.dateOfBirth() == birthdate && answer.sex() == Sex::female;
        return outcome;
      });
  steps.succeed(
      "sendPasswordReset", [&] { return service.sendPasswordReset(email); },
      [](const ForgotPasswordResponse& answer) {
        return Outcome{answer.result(), answer.result() ? "an e-mail is on its way" : "no such account"};
      });

  std::printf("\n\nAnd what goes wrong, as the caller sees it.\n");
  steps.fail(
      "login, wrong password", [&] { return service.login(email, "a guess", id, device); },
      Error::Case::validationError);
  steps.fail(
      "register_, short password", [&] { return service.register_("bo@example.com", "short", "short", id, device); },
      Error::Case::validationError);
  sandbox.expireAccessTokens();
  steps.fail(
      "checkIfValidated, access token expired", [&] { return service.checkIfValidated(token); },
      Error::Case::notAuthorized);
  const std::string gone = Testing::Sandbox().baseUrl();
  HttpApiService unreachable(gone, {}, sandbox.apiKey());
  steps.fail(
      "login, nothing at that address", [&] { return unreachable.login(email, password, id, device); },
      Error::Case::network);

  std::printf("\n%s\n", steps.allExpected() ? "Every step came to what was expected." : "Some steps went wrong.");
  return steps.allExpected();
}
