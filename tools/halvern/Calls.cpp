#include "Calls.hpp"

#include <CLI/CLI.hpp>
#include <HalvernApi/HalvernApi.hpp>
#include <boost/json.hpp>
#include <fstream>
#include <iostream>

#include "Chart.hpp"
#include "Secret.hpp"

using namespace HalvernApi;

namespace {

struct Option {
  enum class Kind { required, optional, secret, file };
  std::string name;
  Kind kind;
  std::string help;
  std::string sample;  // for the example in the help
  std::string standard{};
  std::vector<std::string> choices{};
};
using enum Option::Kind;

const std::vector<Option> allOptions{
    {"base-url", required, "Where the service is; paths are put behind it as they are", "https://service.example"},
    {"api-key", secret, "The application's key", "api-key.txt"},
    {"ca-file", file, "PEM file of the certificate authorities to trust, instead of the system's", ""},
    {"timeout", optional, "Seconds of silence after which the call fails", "", "60"},
    {"email", required, "The account's e-mail address", "anna@example.com"},
    {"password", secret, "The account's password", "password.txt"},
    {"confirm-password", optional, "The password once more; without it, the password", ""},
    {"refresh-token", secret, "The refresh token of an earlier sign-in", "refresh-token.txt"},
    {"facebook-token", secret, "The access token that Facebook's sign-in gave", "facebook-token.txt"},
    {"access-token", secret, "The access token of a sign-in", "access-token.txt"},
    {"app-instance-id", optional, "Identifies this installation", "", "halvern"},
    {"app-instance-name", optional, "Names this installation", "", "halvern on the command line"},
    {"product-name", required, "The hearing aid's model", "'Clarity 3'"},
    {"serial-number", optional, "Its serial number", "12345678"},
    {"hardware-version", required, "Its hardware version", "2.1"},
    {"firmware-version", required, "Its firmware version", "4.0.7"},
    {"tube", required, "Its tube", "'Slim 0.9'"},
    {"orientation", required, "The ear it sits on", "Left", "", {"Left", "Right"}},
    {"birthdate", required, "The user's date of birth", "1980-05-17"},
    {"sex", required, "The user's sex", "Female", "", {"Male", "Female", "NotKnown"}},
    {"audiogram", file, "JSON file: an array of audiograms", "audiograms.json"},
    {"chart", optional, "Writes the audiograms to this file as an SVG picture, and draws them here as text",
     "chart.svg"},
    {"left-out", optional, "Writes the left ear's configuration to this file", "left.bin"},
    {"right-out", optional, "Writes the right ear's configuration to this file", "right.bin"},
};

const Option& optionNamed(std::string_view name) {
  return *std::find_if(allOptions.begin(), allOptions.end(), [&](const Option& option) { return option.name == name; });
}

// What the command line gave, by option name.
class Values {
 public:
  std::string& operator[](const std::string& name) { return texts_[name]; }
  const std::string& operator()(const std::string& name) const { return texts_.at(name); }
  bool has(const std::string& name) const { return texts_.contains(name) && !texts_.at(name).empty(); }

 private:
  std::map<std::string, std::string> texts_;
};

[[noreturn]] void wrongUsage(const std::string& option, const std::string& words) {
  throw CLI::ValidationError("--" + option, words);
}

std::vector<Audiogram> readAudiograms(const Values& values) {
  std::ifstream stream(values("audiogram"));
  const std::string text(std::istreambuf_iterator<char>(stream), {});
  boost::system::error_code error;
  const JsonValue json = boost::json::parse(text, error);
  if (error) wrongUsage("audiogram", "not JSON: " + error.message());
  auto audiograms = JsonCodec<std::vector<Audiogram>>::decodeJson(json);
  if (!audiograms) wrongUsage("audiogram", audiograms.error().description());
  return *std::move(audiograms);
}

void write(const std::string& file, std::string_view bytes) {
  std::ofstream stream(file, std::ios::binary);
  stream << bytes << std::flush;
  if (!stream) throw std::runtime_error("cannot write " + file);
}

void draw(const std::vector<Audiogram>& audiograms, const Values& values) {
  std::cout << textChart(audiograms) << std::flush;
  if (values.has("chart")) write(values("chart"), svgChart(audiograms));
}

// Waits for the result. The library has printed the answer's body by then, so only what that does not say is left.
template <class T, class F>
int finish(const Promise<T, Error>& promise, F whenDone) {
  const auto result = promise.get();
  if (result) {
    whenDone(*result);
    return 0;
  }
  std::cout << std::flush;
  const std::string* const words = result.error().validationMessage();
  std::cerr << "halvern: " << (words != nullptr ? "rejected: " + *words : result.error().description()) << '\n';
  return 1;
}

template <class T>
int finish(const Promise<T, Error>& promise) {
  return finish(promise, [](const T&) {});
}

void store(const char* ear, const std::optional<Data>& data, const std::string& option, const Values& values) {
  std::cout << ear << " ear: " << (data ? std::to_string(data->size()) + " bytes" : "no configuration") << '\n';
  if (data && values.has(option)) write(values(option), Foundation::textOf(*data));
}

int profile(ApiService& service, const Values& values) {
  const std::vector<Audiogram> audiograms = readAudiograms(values);
  if (values.has("chart")) draw(audiograms, values);
  return finish(service.profile(audiograms, values("access-token")), [&](const ConfigurationResponse& answer) {
    store("left", answer.leftData(), "left-out", values);
    store("right", answer.rightData(), "right-out", values);
  });
}

int update(ApiService& service, const Values& values) {
  const auto birthdate = decodeDate(JsonValue(values("birthdate") + "T00:00:00"));
  if (!birthdate) wrongUsage("birthdate", "not a date such as 1980-05-17");
  return finish(service.update(*birthdate, *Sex::fromRawValue(values("sex")), values("access-token")));
}

struct Call {
  const char* name;
  const char* help;
  std::vector<std::string> options;
  int (*run)(ApiService&, const Values&);
};

const std::vector<Call> calls{
    {"login",
     "Signs in with e-mail address and password",
     {"email", "password", "app-instance-id", "app-instance-name"},
     [](ApiService& service, const Values& v) {
       return finish(service.login(v("email"), v("password"), v("app-instance-id"), v("app-instance-name")));
     }},
    {"relogin",
     "Signs in again with a refresh token",
     {"refresh-token", "app-instance-id"},
     [](ApiService& service, const Values& v) {
       return finish(service.relogin(v("refresh-token"), v("app-instance-id")));
     }},
    {"register",
     "Makes an account",
     {"email", "password", "confirm-password", "app-instance-id", "app-instance-name"},
     [](ApiService& service, const Values& v) {
       return finish(service.register_(v("email"), v("password"),
                                       v(v.has("confirm-password") ? "confirm-password" : "password"),
                                       v("app-instance-id"), v("app-instance-name")));
     }},
    {"authenticate",
     "Signs in with a Facebook access token",
     {"facebook-token", "app-instance-id", "app-instance-name"},
     [](ApiService& service, const Values& v) {
       return finish(service.authenticate(v("facebook-token"), v("app-instance-id"), v("app-instance-name")));
     }},
    {"resend-validation-email",
     "Has the e-mail with the confirmation link sent again",
     {"access-token"},
     [](ApiService& service, const Values& v) { return finish(service.resendValidationEmail(v("access-token"))); }},
    {"send-password-reset",
     "Has an e-mail for a new password sent",
     {"email"},
     [](ApiService& service, const Values& v) { return finish(service.sendPasswordReset(v("email"))); }},
    {"check-if-validated",
     "Asks whether the e-mail address has been confirmed",
     {"access-token"},
     [](ApiService& service, const Values& v) { return finish(service.checkIfValidated(v("access-token"))); }},
    {"register-device",
     "Adds a hearing aid to the account",
     {"app-instance-id", "product-name", "serial-number", "hardware-version", "firmware-version", "tube", "orientation",
      "access-token"},
     [](ApiService& service, const Values& v) {
       return finish(service.registerDevice(
           v("app-instance-id"), v("product-name"),
           v.has("serial-number") ? std::optional<std::string_view>(v("serial-number")) : std::nullopt,
           v("hardware-version"), v("firmware-version"), v("tube"), *DeviceOrientation::fromRawValue(v("orientation")),
           v("access-token")));
     }},
    {"profile",
     "Sends audiograms for a fitting configuration of each ear",
     {"audiogram", "chart", "left-out", "right-out", "access-token"},
     profile},
    {"update", "Stores the user's date of birth and sex", {"birthdate", "sex", "access-token"}, update},
};

void addOption(CLI::App& command, const Option& option, Values& values) {
  values[option.name] = option.standard;
  CLI::Option* const added = command.add_option("--" + option.name, values[option.name], option.help);
  if (!option.standard.empty()) added->capture_default_str();
  if (!option.choices.empty()) added->transform(CLI::IsMember(option.choices, CLI::ignore_case));
  if (option.kind == file) added->check(CLI::ExistingFile);
  if (option.kind == required || option.name == "audiogram") added->required();
  if (option.kind == secret)
    command
        .add_option("--" + option.name + "-file", values[option.name + "-file"],
                    "The same, from the first line of a file; asked for when neither is given")
        ->check(CLI::ExistingFile)
        ->excludes(added);
}

// Takes a secret from the file or the terminal where the option itself is not given.
void complete(const Option& option, const CLI::App& command, Values& values) {
  if (command.count("--" + option.name) > 0) return;
  if (command.count("--" + option.name + "-file") > 0) {
    values[option.name] = readSecret(values(option.name + "-file"));
  } else if (const auto typed = askSecret(option.name)) {
    values[option.name] = *typed;
  } else {
    wrongUsage(option.name, "is needed, or --" + option.name + "-file, when standard input is not a terminal");
  }
}

std::string example(const std::string& command, const std::vector<std::string>& options) {
  std::string text = "Example:\n  halvern " + command;
  for (const std::string& name : options)
    if (const Option& option = optionNamed(name); !option.sample.empty())
      text += " --" + name + (option.kind == secret ? "-file " : " ") + option.sample;
  return text;
}

int run(const Call& call, const Values& values) {
  URLSessionConfiguration configuration;
  char* end = nullptr;
  const double seconds = std::strtod(values("timeout").c_str(), &end);
  if (*end != '\0' || !(seconds > 0 && seconds < 1e6)) wrongUsage("timeout", "not a number of seconds");
  configuration.timeoutIntervalForRequest = std::chrono::milliseconds(std::max(1L, std::lround(seconds * 1000)));
  if (values.has("ca-file")) configuration.certificateAuthorityFile = values("ca-file");
  HttpApiService service(values("base-url"), configuration, values("api-key"));
  return call.run(service, values);
}

}  // namespace

void addCalls(CLI::App& app, int& status) {
  for (const Call& call : calls) {
    CLI::App* const command = app.add_subcommand(call.name, call.help);
    const auto values = std::make_shared<Values>();
    std::vector<std::string> options{"base-url", "api-key", "ca-file", "timeout"};
    options.insert(options.end(), call.options.begin(), call.options.end());
    for (const std::string& name : options) addOption(*command, optionNamed(name), *values);
    command->add_flag_callback(
        "--verbose", [] { Environment::log = [](const std::string& line) { std::cerr << line + '\n'; }; },
        "Shows the library's log lines on standard error");
    command->footer(example(call.name, options));
    command->final_callback([&call, &status, command, values, options] {
      for (const std::string& name : options)
        if (optionNamed(name).kind == secret) complete(optionNamed(name), *command, *values);
      status = run(call, *values);
    });
  }

  CLI::App* const chart = app.add_subcommand("chart", "Draws audiograms without sending them");
  const auto values = std::make_shared<Values>();
  for (const char* name : {"audiogram", "chart"}) addOption(*chart, optionNamed(name), *values);
  chart->footer(example("chart", {"audiogram", "chart"}));
  chart->final_callback([values] { draw(readAudiograms(*values), *values); });
}
