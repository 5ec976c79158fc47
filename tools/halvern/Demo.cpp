#include "Demo.hpp"

#include <stdlib.h>
#include <sys/wait.h>

#include <HalvernApi/Testing/Sandbox.hpp>
#include <iostream>

#include "Terminal.hpp"

using HalvernApi::Testing::Sandbox;

namespace {

constexpr char anna[] = "anna@example.com";
constexpr char audiograms[] = R"([
  {"orientation": "Left", "serialNumber": "L-1001", "tube": "Slim 0.9", "values": [
    {"frequency": 125, "volume": 10}, {"frequency": 500, "volume": 20}, {"frequency": 1000, "volume": 30},
    {"frequency": 2000, "volume": 45}, {"frequency": 4000, "volume": 60}, {"frequency": 8000, "volume": 75}]},
  {"orientation": "Right", "serialNumber": "R-1002", "tube": "Slim 0.9", "values": [
    {"frequency": 125, "volume": 5}, {"frequency": 500, "volume": 20}, {"frequency": 1000, "volume": 25},
    {"frequency": 2000, "volume": 35.5}, {"frequency": 4000, "volume": 50}, {"frequency": 8000, "volume": 60}]}]
)";

constexpr struct Step {
  const char* command;
  const char* shows;
  int status = status::done;
  void (*before)(Sandbox&) = [](Sandbox&) {};
} steps[] = {
    {"register --email anna@example.com", R"("isEmailConfirmed":false)"},
    {"resend-validation-email", "true"},
    {"check-if-validated", "false"},
    {"check-if-validated", "true", status::done,
     [](Sandbox& sandbox) {
       std::cout << "\n(The user follows the link in the e-mail: " << sandbox.confirmationLink(anna).value_or("")
                 << ")\n";
       sandbox.confirmEmail(anna);
     }},
    {"login --email anna@example.com", R"("isEmailConfirmed":true)"},
    {"relogin", anna},
    {"authenticate --facebook-token sandbox-facebook-token", "facebook.user@example.com"},
    {"login --email anna@example.com", anna},
    {"register-device --product-name 'Clarity 3' --serial-number L-1001 --hardware-version 2.1 "
     "--firmware-version 4.0.7 --tube 'Slim 0.9' --orientation Left",
     ""},
    {"register-device --product-name 'Clarity 3' --hardware-version 2.1 --firmware-version 4.0.7 --tube 'Slim 0.9' "
     "--orientation Right",
     ""},
    {"profile - --chart /dev/null", "right ear: "},
    {"update --birthdate 1980-05-17 --sex female", ""},
    {"login --email anna@example.com", R"("dateOfBirth":"1980-05-17T00:00:00","sex":"Female")"},
    {"send-password-reset --email anna@example.com", "true"},
    {"login --email anna@example.com --password 'a guess'", "is wrong", status::refused,
     [](Sandbox&) { std::cout << "\n(Now calls that fail.)\n"; }},
    {"register --email bo@example.com --password short", "password", status::refused},
    {"check-if-validated", "401", status::notAuthorized, [](Sandbox& sandbox) { sandbox.expireAccessTokens(); }},
    {"login --email anna@example.com --base-url http://127.0.0.1:1", "-1004", status::network},
};

// Copies the string member `key` of an answer to an environment variable, for the next commands.
void keep(const std::string& answer, const std::string& key, const char* variable) {
  const std::size_t begin = answer.find('"' + key + "\":\"");
  if (begin == std::string::npos) return;
  const std::size_t from = begin + key.size() + 4;
  setenv(variable, answer.substr(from, answer.find('"', from) - from).c_str(), 1);
}

}  // namespace

bool demo(const std::string& program) {
  Sandbox sandbox;
  setenv("HALVERN_API_KEY", sandbox.apiKey().c_str(), 1);
  setenv("HALVERN_PASSWORD", "correct horse", 1);
  unsetenv("HALVERN_PROXY");
  std::cout << "All ten operations with one account, against a sandbox at " << sandbox.baseUrl()
            << ".\nSecrets are passed in the environment.\n";
  bool allExpected = true;
  for (const auto& [command, shows, status, before] : steps) {
    before(sandbox);
    std::cout << "\n$ halvern " << command << '\n' << std::flush;
    const bool isElsewhere = std::string(command).find("--base-url") != std::string::npos;
    const std::string line = "'" + program + "' " + command + (isElsewhere ? "" : " --base-url " + sandbox.baseUrl()) +
                             " 2>&1 <<'END'\n" + audiograms + "END\n";
    std::FILE* const pipe = popen(line.c_str(), "r");  // NOLINT(cert-env33-c): fixed commands
    std::string answer;
    for (int letter = 0; pipe != nullptr && (letter = std::fgetc(pipe)) != EOF;) answer += static_cast<char>(letter);
    const int ended = pipe == nullptr ? -1 : pclose(pipe);
    const bool expected = WEXITSTATUS(ended) == status && answer.find(shows) != std::string::npos;
    std::cout << answer << "exit status " << WEXITSTATUS(ended) << (expected ? "" : "  NOT EXPECTED") << '\n';
    allExpected = allExpected && expected;
    keep(answer, "accessToken", "HALVERN_ACCESS_TOKEN");
    keep(answer, "refreshToken", "HALVERN_REFRESH_TOKEN");
  }
  std::cout << (allExpected ? "\nEvery step had the expected result.\n" : "\nSome steps failed.\n");
  return allExpected;
}
