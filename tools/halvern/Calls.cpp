#include "Calls.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <HalvernApi/HalvernApi.hpp>
#include <boost/json.hpp>
#include <fstream>
#include <iostream>

#include "Chart.hpp"
#include "Terminal.hpp"

using namespace HalvernApi;

namespace {

// What the command line gives, with what stands for an option that it leaves out.
struct Values {
  std::string baseUrl, apiKey, caFile;
  double timeout = 60;
  std::string email, password, refreshToken, facebookToken, accessToken;
  std::optional<std::string> confirmPassword, serialNumber;
  std::string appInstanceId = "halvern", appInstanceName = "halvern on the command line";
  std::string productName, hardwareVersion, firmwareVersion, tube, orientation, birthdate, sex;
  std::string audiogram, chart, leftOut, rightOut;
  bool json = false, noColor = false, check = false;
};

struct Option {
  enum class Kind { required, optional, secret, flag, file };
  using enum Kind;
  std::string name;
  std::variant<std::string Values::*, std::optional<std::string> Values::*, double Values::*, bool Values::*> variable;
  Kind kind;
  std::string help;
  std::string sample;      // for the example in the help
  CLI::Validator check{};  // passes everything
};
using enum Option::Kind;

Expected<Date, JsonDecodeError> dateOf(const std::string& day) {
  return JsonCodec<Date>::decodeJson(JsonValue(day + "T00:00:00"));
}
const CLI::Validator isDay([](std::string& day) { return dateOf(day) ? "" : "not a date such as 1980-05-17"; }, "DAY");

const std::vector<Option> allOptions{
    {"base-url", &Values::baseUrl, required, "Where the service is; paths are put behind it as they are",
     "https://service.example"},
    {"api-key", &Values::apiKey, secret, "The application's key", "api-key.txt"},
    {"ca-file", &Values::caFile, optional, "PEM file of the certificate authorities to trust, instead of the system's",
     "", CLI::ExistingFile},
    {"timeout", &Values::timeout, optional, "Seconds of silence after which the call fails", "",
     CLI::Range(0.001, 1e6, "SECONDS")},
    {"email", &Values::email, required, "The account's e-mail address", "anna@example.com"},
    {"password", &Values::password, secret, "The account's password", "password.txt"},
    {"confirm-password", &Values::confirmPassword, optional, "The password once more; without it, the password", ""},
    {"refresh-token", &Values::refreshToken, secret, "The refresh token of an earlier sign-in", "refresh-token.txt"},
    {"facebook-token", &Values::facebookToken, secret, "The access token that Facebook's sign-in gave",
     "facebook-token.txt"},
    {"access-token", &Values::accessToken, secret, "The access token of a sign-in", "access-token.txt"},
    {"app-instance-id", &Values::appInstanceId, optional, "Identifies this installation", ""},
    {"app-instance-name", &Values::appInstanceName, optional, "Names this installation", ""},
    {"product-name", &Values::productName, required, "The hearing aid's model", "'Clarity 3'"},
    {"serial-number", &Values::serialNumber, optional, "Its serial number", "12345678"},
    {"hardware-version", &Values::hardwareVersion, required, "Its hardware version", "2.1"},
    {"firmware-version", &Values::firmwareVersion, required, "Its firmware version", "4.0.7"},
    {"tube", &Values::tube, required, "Its tube", "'Slim 0.9'"},
    {"orientation", &Values::orientation, required, "The ear it sits on", "Left",
     CLI::IsMember({"Left", "Right"}, CLI::ignore_case)},
    {"birthdate", &Values::birthdate, required, "The user's date of birth", "1980-05-17", isDay},
    {"sex", &Values::sex, required, "The user's sex", "Female",
     CLI::IsMember({"Male", "Female", "NotKnown"}, CLI::ignore_case)},
    {"audiogram", &Values::audiogram, file, "JSON file: an array of audiograms", "audiograms.json", CLI::ExistingFile},
    {"check", &Values::check, flag, "Draws nothing: says every fault of the file, by its path", ""},
    {"chart", &Values::chart, optional,
     "Writes the audiograms to this file as an SVG picture, and draws them here as text", "chart.svg"},
    {"no-color", &Values::noColor, flag, "Draws without colour, as the variable NO_COLOR has it too", ""},
    {"left-out", &Values::leftOut, optional, "Writes the left ear's configuration to this file", "left.bin"},
    {"right-out", &Values::rightOut, optional, "Writes the right ear's configuration to this file", "right.bin"},
};

const Option& optionNamed(std::string_view name) {
  return *std::find_if(allOptions.begin(), allOptions.end(), [&](const Option& option) { return option.name == name; });
}

[[noreturn]] void wrongUsage(const std::string& option, const std::string& words) {
  throw CLI::ValidationError("--" + option, words);
}

// Every fault of the file in a line of its own.
std::vector<Audiogram> readAudiograms(const Values& values) {
  std::ifstream stream(values.audiogram);
  const std::string text(std::istreambuf_iterator<char>(stream), {});
  boost::json::parser parser;
  boost::system::error_code error;
  const std::size_t read = parser.write_some(text, error);
  if (!error && text.find_first_not_of(" \t\r\n", read) != std::string::npos) error = boost::json::error::extra_data;
  if (error) {
    const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(read), '\n');
    wrongUsage("audiogram", "line " + std::to_string(line) + ": not JSON: " + error.message());
  }
  auto audiograms = JsonCodec<std::vector<Audiogram>>::decodeJson(parser.release());
  if (!audiograms)
    wrongUsage("audiogram", '\n' + CLI::detail::find_and_replace(audiograms.error().description(), "; ", "\n"));
  return *std::move(audiograms);
}

void write(const std::string& file, std::string_view bytes) {
  std::ofstream stream(file, std::ios::binary);
  stream << bytes << std::flush;
  if (!stream) throw NotWritten("cannot write " + file + ": " + std::generic_category().message(errno));
}

void draw(const std::vector<Audiogram>& audiograms, const Values& values, int stream) {
  winsize size{};
  if (ioctl(stream, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) size.ws_col = 80;
  const bool coloured = isatty(stream) != 0 && !values.noColor && std::getenv("NO_COLOR") == nullptr;
  (stream == STDOUT_FILENO ? std::cout : std::cerr) << textChart(audiograms, size.ws_col, coloured) << std::flush;
  if (!values.chart.empty()) write(values.chart, svgChart(audiograms));
}

// What a failure is called in JSON and by the exit status, in the order of Error::Case.
constexpr struct {
  const char* name;
  int status;
} cases[] = {{"network", status::network},
             {"unknownNSError", status::failed},
             {"validationError", status::refused},
             {"unknownJsonData", status::failed},
             {"notAuthorized", status::notAuthorized}};

std::string wordsOf(const Error& error) {
  const std::string* const words = error.validationMessage();
  return words != nullptr ? *words : error.description();
}

// Domain and code are those of what lies beneath, where there is something.
JsonObject jsonOf(const Error& error) {
  const NSError* const beneath = error.platformError();
  return {{"error",
           {{"case", cases[error.code()].name},
            {"domain", beneath != nullptr ? std::string_view(beneath->domain) : error.domain()},
            {"code", beneath != nullptr ? beneath->code : error.code()},
            {"message", wordsOf(error)}}}};
}

template <class T>
JsonObject jsonOf([[maybe_unused]] const T& answer) {
  if constexpr (std::is_same_v<T, Unit>)
    return {};
  else
    return answer.encodeJson();
}

// Whether an answer that says yes or no to what was asked for says no.
template <class T>
bool isRefusal([[maybe_unused]] const T& answer) {
  if constexpr (requires { answer.isSuccessful(); }) return !answer.isSuccessful();
  if constexpr (std::is_same_v<T, ForgotPasswordResponse>) return !answer.result();
  return false;
}

// Waits for the result of a call that was made while standard output was held.
template <class T, class F>
int finish(const Promise<T, Error>& promise, const Values& values, F whenDone) {
  wait([&] { return promise.waitFor(std::chrono::seconds(1)); });
  const auto result = promise.get();
  std::string body = releaseOutput();
  if (values.json) body = boost::json::serialize(result ? jsonOf(*result) : jsonOf(result.error())) + '\n';
  std::cout << (isatty(STDOUT_FILENO) != 0 ? printable(body) : body) << std::flush;
  if (!result) {
    say(wordsOf(result.error()));
    return cases[result.error().code()].status;
  }
  whenDone(*result);
  if (!isRefusal(*result)) return status::done;
  say("the service refused");
  return status::refused;
}

template <class T>
int finish(const Promise<T, Error>& promise, const Values& values) {
  return finish(promise, values, [](const T&) {});
}

void store(const char* ear, const std::optional<Data>& data, const std::string& file) {
  say(std::string(ear) + " ear: " + (data ? std::to_string(data->size()) + " bytes" : "no configuration"));
  if (data && !file.empty()) write(file, Foundation::textOf(*data));
}

int profile(ApiService& service, const Values& values) {
  const std::vector<Audiogram> audiograms = readAudiograms(values);
  if (!values.chart.empty()) draw(audiograms, values, STDERR_FILENO);
  return finish(service.profile(audiograms, values.accessToken), values, [&](const ConfigurationResponse& answer) {
    store("left", answer.leftData(), values.leftOut);
    store("right", answer.rightData(), values.rightOut);
  });
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
       return finish(service.login(v.email, v.password, v.appInstanceId, v.appInstanceName), v);
     }},
    {"relogin",
     "Signs in again with a refresh token",
     {"refresh-token", "app-instance-id"},
     [](ApiService& service, const Values& v) { return finish(service.relogin(v.refreshToken, v.appInstanceId), v); }},
    {"register",
     "Makes an account",
     {"email", "password", "confirm-password", "app-instance-id", "app-instance-name"},
     [](ApiService& service, const Values& v) {
       const std::string& confirmed = v.confirmPassword ? *v.confirmPassword : v.password;
       return finish(service.register_(v.email, v.password, confirmed, v.appInstanceId, v.appInstanceName), v);
     }},
    {"authenticate",
     "Signs in with a Facebook access token",
     {"facebook-token", "app-instance-id", "app-instance-name"},
     [](ApiService& service, const Values& v) {
       return finish(service.authenticate(v.facebookToken, v.appInstanceId, v.appInstanceName), v);
     }},
    {"resend-validation-email",
     "Has the e-mail with the confirmation link sent again",
     {"access-token"},
     [](ApiService& service, const Values& v) { return finish(service.resendValidationEmail(v.accessToken), v); }},
    {"send-password-reset",
     "Has an e-mail for a new password sent",
     {"email"},
     [](ApiService& service, const Values& v) { return finish(service.sendPasswordReset(v.email), v); }},
    {"check-if-validated",
     "Asks whether the e-mail address has been confirmed",
     {"access-token"},
     [](ApiService& service, const Values& v) { return finish(service.checkIfValidated(v.accessToken), v); }},
    {"register-device",
     "Adds a hearing aid to the account",
     {"app-instance-id", "product-name", "serial-number", "hardware-version", "firmware-version", "tube", "orientation",
      "access-token"},
     [](ApiService& service, const Values& v) {
       const DeviceOrientation orientation = *DeviceOrientation::fromRawValue(v.orientation);
       return finish(service.registerDevice(v.appInstanceId, v.productName, v.serialNumber, v.hardwareVersion,
                                            v.firmwareVersion, v.tube, orientation, v.accessToken),
                     v);
     }},
    {"profile",
     "Sends audiograms for a fitting configuration of each ear",
     {"audiogram", "chart", "no-color", "left-out", "right-out", "access-token"},
     profile},
    {"update",
     "Stores the user's date of birth and sex",
     {"birthdate", "sex", "access-token"},
     [](ApiService& service, const Values& v) {
       return finish(service.update(*dateOf(v.birthdate), *Sex::fromRawValue(v.sex), v.accessToken), v);
     }},
};

void addOption(CLI::App& command, const Option& option, Values& values) {
  const std::string name = "--" + option.name;
  if (option.kind == flag) {
    command.add_flag(name, values.*std::get<bool Values::*>(option.variable), option.help);
    return;
  }
  // A file may do without the option's name.
  const std::string names = option.kind == file ? "FILE," + name : name;
  CLI::Option* const added = std::visit(
      [&](auto variable) { return command.add_option(names, values.*variable, option.help); }, option.variable);
  added->capture_default_str()->transform(option.check)->required(option.kind == required || option.kind == file);
  if (option.kind != secret) return;
  std::string variable = "HALVERN_" + option.name;
  for (char& letter : variable) letter = letter == '-' ? '_' : static_cast<char>(std::toupper(letter));
  added->envname(variable);
  command.add_option(name + "-file", "The same, from the first line of a file, which goes before")
      ->check(CLI::ExistingFile);
}

// Takes a secret from the file or the terminal where neither the option nor the environment gives it.
void complete(const Option& option, const CLI::App& command, Values& values) {
  std::string& secret = values.*std::get<std::string Values::*>(option.variable);
  if (const auto* const file = command.get_option("--" + option.name + "-file"); file->count() > 0)
    secret = readSecret(file->as<std::string>());
  else if (command.count("--" + option.name) > 0)
    return;
  else if (isatty(STDIN_FILENO) == 0)
    wrongUsage(option.name, "is needed, or --" + option.name + "-file, when standard input is not a terminal");
  else if (const auto typed = askSecret(option.name))
    secret = *typed;
  else
    wrongUsage(option.name, "is needed, and the input ended before it");
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
  configuration.timeoutIntervalForRequest = std::chrono::milliseconds(std::lround(values.timeout * 1000));
  if (!values.caFile.empty()) configuration.certificateAuthorityFile = values.caFile;
  HttpApiService service(values.baseUrl, configuration, values.apiKey);
  holdOutput();
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
        "--verbose", [] { Environment::log = [](const std::string& line) { say(line); }; },
        "Shows the library's log lines on standard error");
    command->add_flag(
        "--json", values->json,
        "Prints one JSON value and nothing else: the record, or {\"error\": {\"case\", \"domain\", \"code\", "
        "\"message\"}}");
    command->footer(example(call.name, options) + "\n\n" + status::help);
    command->final_callback([&call, &status, command, values, options] {
      for (const std::string& name : options)
        if (optionNamed(name).kind == secret) complete(optionNamed(name), *command, *values);
      status = run(call, *values);
    });
  }

  CLI::App* const chart = app.add_subcommand("chart", "Draws audiograms without sending them");
  const auto values = std::make_shared<Values>();
  for (const char* name : {"audiogram", "check", "chart", "no-color"}) addOption(*chart, optionNamed(name), *values);
  chart->footer(example("chart", {"audiogram", "chart"}));
  chart->final_callback([values] {
    const std::vector<Audiogram> audiograms = readAudiograms(*values);
    if (!values->check) draw(audiograms, *values, STDOUT_FILENO);
  });
}
