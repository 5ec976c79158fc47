#include "Calls.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <HalvernApi/HalvernApi.hpp>
#include <boost/algorithm/string.hpp>
#include <boost/json.hpp>
#include <fstream>
#include <iostream>

#include "Chart.hpp"
#include "Terminal.hpp"

using namespace HalvernApi;

namespace {

// The values of all options, with the defaults of those that are not given.
struct Values {
  std::string baseUrl, apiKey, caFile;
  double timeout = 60;
  bool json = false, verbose = false, noColor = false, check = false;
  std::string email, password, confirmPassword, refreshToken, facebookToken, accessToken;
  std::string appInstanceId = "halvern", appInstanceName = "halvern on the command line";
  std::string productName, hardwareVersion, firmwareVersion, tube;
  std::optional<std::string> serialNumber;
  DeviceOrientation orientation = DeviceOrientation::left;
  Date birthdate{std::chrono::sys_seconds()};
  Sex sex = Sex::unknown;
  std::vector<Audiogram> audiograms;
  std::string chart, leftOut, rightOut;
};

template <class... T>
using MemberOf = std::variant<T Values::*...>;
using Variable = MemberOf<std::string, std::optional<std::string>, double, bool, DeviceOrientation, Date, Sex,
                          std::vector<Audiogram>>;

struct Option {
  enum class Kind { required, optional, secret };
  using enum Kind;
  Variable variable;
  Kind kind;
  std::string name;
  std::string help;
  std::string sample{};    // for the example in the help
  CLI::Validator check{};  // accepts everything where none is named
};
using enum Option::Kind;

CLI::Validator oneOf(const std::vector<std::string>& texts) { return CLI::IsMember(texts, CLI::ignore_case); }

const std::vector<Option> allOptions{
    {&Values::baseUrl, required, "base-url", "Where the service is; no slash at the end", "https://service.example"},
    {&Values::apiKey, secret, "api-key", "The application's key", "api-key.txt"},
    {&Values::caFile, optional, "ca-file", "PEM file of authorities to trust, not the system's", "", CLI::ExistingFile},
    {&Values::timeout, optional, "timeout", "Seconds of silence at most", "", CLI::Range(0.001, 1e6, "SECONDS")},
    {&Values::json, optional, "json", "Prints one JSON value and nothing else: the record, or an object \"error\""},
    {&Values::verbose, optional, "verbose", "Shows the library's log lines on standard error"},
    {&Values::email, required, "email", "The account's e-mail address", "anna@example.com"},
    {&Values::password, secret, "password", "The account's password", "password.txt"},
    {&Values::confirmPassword, optional, "confirm-password", "The password once more; without it, the password"},
    {&Values::refreshToken, secret, "refresh-token", "The refresh token of an earlier sign-in", "refresh-token.txt"},
    {&Values::facebookToken, secret, "facebook-token", "The access token of Facebook's sign-in", "facebook-token.txt"},
    {&Values::accessToken, secret, "access-token", "The access token of a sign-in", "access-token.txt"},
    {&Values::appInstanceId, optional, "app-instance-id", "Identifies this installation"},
    {&Values::appInstanceName, optional, "app-instance-name", "Names this installation"},
    {&Values::productName, required, "product-name", "The hearing aid's model", "'Clarity 3'"},
    {&Values::serialNumber, optional, "serial-number", "Its serial number", "12345678"},
    {&Values::hardwareVersion, required, "hardware-version", "Its hardware version", "2.1"},
    {&Values::firmwareVersion, required, "firmware-version", "Its firmware version", "4.0.7"},
    {&Values::tube, required, "tube", "Its tube", "'Slim 0.9'"},
    {&Values::orientation, required, "orientation", "The ear it sits on", "Left", oneOf({"Left", "Right"})},
    {&Values::birthdate, required, "birthdate", "The user's date of birth", "1980-05-17"},
    {&Values::sex, required, "sex", "The user's sex", "Female", oneOf({"Male", "Female", "NotKnown"})},
    {&Values::audiograms, required, "audiogram", "JSON file of audiograms", "audiograms.json", CLI::ExistingFile},
    {&Values::check, optional, "check", "Draws nothing: says every fault of the file, by its path"},
    {&Values::chart, optional, "chart", "Draws the audiograms here, and as a picture in this file", "chart.svg"},
    {&Values::noColor, optional, "no-color", "Draws without colour, as with the variable NO_COLOR"},
    {&Values::leftOut, optional, "left-out", "Writes the left ear's configuration to this file", "left.bin"},
    {&Values::rightOut, optional, "right-out", "Writes the right ear's configuration to this file", "right.bin"},
};

const Option& optionOf(Variable variable) {
  return *std::find_if(allOptions.begin(), allOptions.end(),
                       [&](const Option& option) { return option.variable == variable; });
}

// What was given for an option, as JSON: the content of a file, midnight of a day, or the text itself.
template <class T>
JsonValue givenJson(const std::string& option, const std::string& given) {
  if constexpr (std::is_same_v<T, Date>) return JsonValue(given + "T00:00:00");
  if constexpr (!std::is_same_v<T, std::vector<Audiogram>>) return JsonValue(given);
  std::ifstream stream(given);
  const std::string text(std::istreambuf_iterator<char>(stream), {});
  boost::json::parser parser;
  boost::system::error_code error;
  const auto parsed = static_cast<std::ptrdiff_t>(parser.write_some(text, error));
  const auto rest = text.begin() + parsed;
  if (!error && std::any_of(rest, text.end(), [](char letter) { return !std::isspace(letter); }))
    error = boost::json::error::extra_data;
  if (!error) return parser.release();
  const auto line = 1 + std::count(text.begin(), rest, '\n');
  throw CLI::ValidationError(option, "line " + std::to_string(line) + ": not JSON: " + error.message());
}

// Reads what was given for an option. Throws with a line for each fault in it.
template <class T>
bool read(const std::string& option, const std::string& given, T& value) {
  const auto decoded = JsonCodec<T>::decodeJson(givenJson<T>(option, given));
  if (!decoded) {
    const std::string faults =
        std::is_same_v<T, Date> ? "not a date such as 1980-05-17" : decoded.error().description();
    throw CLI::ValidationError(option, boost::replace_all_copy(faults, "; ", "\n"));
  }
  value = *decoded;
  return true;
}

void write(const std::string& file, std::string_view bytes) {
  std::ofstream stream(file, std::ios::binary);
  stream << bytes << std::flush;
  if (!stream) throw NotWritten("cannot write " + file + ": " + std::generic_category().message(errno));
}

void draw(const Values& values, int stream) {
  winsize size{};
  if (ioctl(stream, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) size.ws_col = 80;
  const char* const noColor = std::getenv("NO_COLOR");
  const bool coloured = isatty(stream) != 0 && !values.noColor && (noColor == nullptr || *noColor == '\0');
  (stream == STDOUT_FILENO ? std::cout : std::cerr)
      << textChart(values.audiograms, size.ws_col, coloured) << std::flush;
  if (!values.chart.empty()) write(values.chart, svgChart(values.audiograms));
}

// The names of failures in JSON output and their exit statuses, in the order of Error::Case.
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

// Domain and code are the platform error's, where there is one, and the Error's own otherwise.
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

// Whether the service says in its answer that it has not done what was asked for.
template <class T>
bool isRefusal([[maybe_unused]] const T& answer) {
  if constexpr (requires { answer.isSuccessful(); }) return !answer.isSuccessful();
  if constexpr (std::is_same_v<T, ForgotPasswordResponse>) return !answer.result();
  return false;
}

void store(const char* ear, const std::optional<Data>& data, const std::string& file) {
  say(std::string(ear) + " ear: " + (data ? std::to_string(data->size()) + " bytes" : "no configuration"));
  if (data && !file.empty()) write(file, Foundation::textOf(*data));
}

// Waits for the result of a call that was made while standard output was held.
template <class T>
int finish(const Promise<T, Error>& promise, const Values& values) {
  wait([&] { return promise.waitFor(std::chrono::seconds(1)); });
  const auto result = promise.get();
  std::string body = releaseOutput();
  if (values.json) body = boost::json::serialize(result ? jsonOf(*result) : jsonOf(result.error())) + '\n';
  std::cout << (isatty(STDOUT_FILENO) != 0 ? printable(body) : body) << std::flush;
  if (!result) {
    say(wordsOf(result.error()));
    return cases[result.error().code()].status;
  }
  if constexpr (std::is_same_v<T, ConfigurationResponse>) {
    store("left", result->leftData(), values.leftOut);
    store("right", result->rightData(), values.rightOut);
  }
  if (!isRefusal(*result)) return status::done;
  say("the service refused");
  return status::refused;
}

struct Call {
  const char* name;
  const char* help;
  std::vector<Variable> options;
  std::function<int(ApiService&, const Values&)> run;
};

// An operation and the options that are its arguments.
template <class Operation, class... T>
Call call(const char* name, const char* help, Operation operation, T Values::*... arguments) {
  return {name, help, {arguments...}, [=](ApiService& service, const Values& values) {
            return finish((service.*operation)(values.*arguments...), values);
          }};
}

const std::vector<Call> calls{
    call("login", "Signs in with e-mail address and password", &ApiService::login, &Values::email, &Values::password,
         &Values::appInstanceId, &Values::appInstanceName),
    call("relogin", "Signs in again with a refresh token", &ApiService::relogin, &Values::refreshToken,
         &Values::appInstanceId),
    call("register", "Makes an account", &ApiService::register_, &Values::email, &Values::password,
         &Values::confirmPassword, &Values::appInstanceId, &Values::appInstanceName),
    call("authenticate", "Signs in with a Facebook access token", &ApiService::authenticate, &Values::facebookToken,
         &Values::appInstanceId, &Values::appInstanceName),
    call("resend-validation-email", "Has the e-mail with the confirmation link sent again",
         &ApiService::resendValidationEmail, &Values::accessToken),
    call("send-password-reset", "Has an e-mail for a new password sent", &ApiService::sendPasswordReset,
         &Values::email),
    call("check-if-validated", "Asks whether the e-mail address has been confirmed", &ApiService::checkIfValidated,
         &Values::accessToken),
    call("register-device", "Adds a hearing aid to the account", &ApiService::registerDevice, &Values::appInstanceId,
         &Values::productName, &Values::serialNumber, &Values::hardwareVersion, &Values::firmwareVersion, &Values::tube,
         &Values::orientation, &Values::accessToken),
    call("profile", "Sends audiograms for a fitting configuration of each ear", &ApiService::profile,
         &Values::audiograms, &Values::accessToken),
    call("update", "Stores the user's date of birth and sex", &ApiService::update, &Values::birthdate, &Values::sex,
         &Values::accessToken),
};

void addOption(CLI::App& command, const Option& option, Values& values) {
  const std::string name = "--" + option.name;
  const auto add = [&]<class T>(T Values::*variable) -> CLI::Option* {
    T& value = values.*variable;
    if constexpr (std::is_same_v<T, bool>) {
      return command.add_flag(name, value, option.help);
    } else if constexpr (std::is_same_v<T, double> || std::is_convertible_v<std::string, T>) {
      return command.add_option(name, value, option.help)->capture_default_str();
    } else {
      const auto take = [name, &value](const CLI::results_t& texts) { return read(name, texts[0], value); };
      return command.add_option(std::is_same_v<T, std::vector<Audiogram>> ? "FILE," + name : name, take, option.help);
    }
  };
  CLI::Option* const added = std::visit(add, option.variable)->required(option.kind == required);
  added->transform(option.check);
  if (option.kind != secret) return;
  added->envname(boost::to_upper_copy("HALVERN_" + boost::replace_all_copy(option.name, "-", "_")));
  command.add_option(name + "-file", "The same, from the first line of a file, which goes before")
      ->check(CLI::ExistingFile);
}

// Reads a secret from its file, or asks for it at the terminal, where neither option nor environment has it.
void complete(const Option& option, const CLI::App& command, Values& values) {
  std::string& secretText = values.*std::get<std::string Values::*>(option.variable);
  const std::string name = "--" + option.name;
  if (const auto* const file = command.get_option(name + "-file"); file->count() > 0)
    secretText = readSecret(file->as<std::string>());
  else if (command.count(name) > 0)
    return;
  else if (isatty(STDIN_FILENO) == 0)
    throw CLI::ValidationError(name, "is needed, or " + name + "-file, when standard input is not a terminal");
  else if (const auto typed = askSecret(option.name))
    secretText = *typed;
  else
    throw CLI::ValidationError(name, "is needed, and the input ended before it");
}

// Adds options, and an example of their use, to a subcommand, and has it call `run` with their values.
template <class Run>
void complement(CLI::App& command, const std::vector<Variable>& variables, Run run) {
  const auto values = std::make_shared<Values>();
  std::string example = "Example:\n  halvern " + command.get_name();
  for (const Variable variable : variables) {
    const Option& option = optionOf(variable);
    addOption(command, option, *values);
    if (!option.sample.empty())
      example += " --" + option.name + (option.kind == secret ? "-file " : " ") + option.sample;
  }
  command.footer(example + "\n\n" + status::help);
  command.final_callback([&command, variables, values, run] {
    for (const Variable variable : variables)
      if (optionOf(variable).kind == secret) complete(optionOf(variable), command, *values);
    run(*values);
  });
}

int run(const Call& call, Values& values) {
  if (values.verbose) Environment::log = [](const std::string& line) { say(line); };
  if (values.confirmPassword.empty()) values.confirmPassword = values.password;
  if (!values.chart.empty()) draw(values, STDERR_FILENO);
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
    std::vector<Variable> options{&Values::baseUrl, &Values::apiKey,  &Values::caFile,
                                  &Values::timeout, &Values::verbose, &Values::json};
    options.insert(options.end(), call.options.begin(), call.options.end());
    if (call.options[0] == Variable(&Values::audiograms))
      options.insert(options.end(), {&Values::chart, &Values::noColor, &Values::leftOut, &Values::rightOut});
    complement(*app.add_subcommand(call.name, call.help), options,
               [&call, &status](Values& values) { status = run(call, values); });
  }
  complement(*app.add_subcommand("chart", "Draws audiograms without sending them"),
             {&Values::audiograms, &Values::check, &Values::chart, &Values::noColor}, [](const Values& values) {
               if (!values.check) draw(values, STDOUT_FILENO);
             });
}
