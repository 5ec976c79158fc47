#include "Calls.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <HalvernApi/HalvernApi.hpp>
#include <boost/algorithm/string.hpp>
#include <boost/json.hpp>
#include <iostream>

#include "AudiogramFile.hpp"
#include "Chart.hpp"
#include "Files.hpp"
#include "Terminal.hpp"

using namespace HalvernApi;

namespace {

// The values of all options. The initial values are the defaults.
struct Values {
  std::string baseUrl, apiKey, caFile, proxy;
  std::vector<std::string> pins;
  double timeout = 60, maxTime = 7 * 24 * 60 * 60;
  bool json = false, verbose = false, noColor = false, check = false;
  std::string email, password, confirmPassword, refreshToken, facebookToken, accessToken;
  std::string appInstanceId = "halvern", appInstanceName = "halvern on the command line";
  std::string productName, hardwareVersion, firmwareVersion, tube;
  std::optional<std::string> serialNumber;
  DeviceOrientation orientation = DeviceOrientation::left;
  Date birthdate{std::chrono::sys_seconds()};
  Sex sex = Sex::unknown;
  std::string audiogramFile;
  std::vector<Audiogram> audiograms;
  std::string chart, leftOut, rightOut;
  OutputFiles outputs;

  bool printsAnswer() const { return chart != "-" && leftOut != "-" && rightOut != "-"; }
};

using Variable =
    std::variant<std::string Values::*, std::vector<std::string> Values::*, std::optional<std::string> Values::*,
                 double Values::*, bool Values::*, DeviceOrientation Values::*, Date Values::*, Sex Values::*,
                 std::vector<Audiogram> Values::*>;

enum Kind { required, optional, secret, output };

struct Option {
  Variable variable;
  Kind kind;
  std::string name;
  std::string value;  // shown after the name: a format, the possible values separated by |, or FILE
  std::string help;
  std::string sample{};          // the value in the example of the help
  bool isInEnvironment = false;  // always true for secrets
};

const std::vector<Option> allOptions{
    {&Values::baseUrl, required, "base-url", "URL", "Base URL of the service, without a slash at the end",
     "https://service.example", true},
    {&Values::apiKey, secret, "api-key", "TEXT", "The application's key", "api-key.txt"},
    {&Values::caFile, optional, "ca-file", "FILE",
     "PEM file of certificate authorities to trust instead of the system's"},
    {&Values::pins, optional, "pin", "HASH",
     "SHA-256 of the server's public key, in Base64; servers with another key are refused. Can be repeated"},
    {&Values::proxy, optional, "proxy", "URL", "The proxy to use. The variable http_proxy is not read", "", true},
    {&Values::timeout, optional, "timeout", "SECONDS", "Ends the call if no data is transferred for this time"},
    {&Values::maxTime, optional, "max-time", "SECONDS", "Ends the call after this time"},
    {&Values::json, optional, "json", "",
     "Prints one JSON object and nothing else: the answer, or an object with the member \"error\""},
    {&Values::verbose, optional, "verbose", "", "Shows the library's log lines on standard error"},
    {&Values::email, required, "email", "ADDRESS", "The account's e-mail address", "anna@example.com"},
    {&Values::password, secret, "password", "TEXT", "The account's password", "password.txt"},
    {&Values::confirmPassword, optional, "confirm-password", "TEXT",
     "The password again; by default the same as --password"},
    {&Values::refreshToken, secret, "refresh-token", "TEXT", "The refresh token from an earlier sign-in",
     "refresh-token.txt"},
    {&Values::facebookToken, secret, "facebook-token", "TEXT", "The access token from the Facebook sign-in",
     "facebook-token.txt"},
    {&Values::accessToken, secret, "access-token", "TEXT", "The access token from a sign-in", "access-token.txt"},
    {&Values::appInstanceId, optional, "app-instance-id", "TEXT", "Identifies this installation"},
    {&Values::appInstanceName, optional, "app-instance-name", "TEXT", "Names this installation"},
    {&Values::productName, required, "product-name", "TEXT", "The hearing aid's model", "'Clarity 3'"},
    {&Values::serialNumber, optional, "serial-number", "TEXT", "Its serial number", "12345678"},
    {&Values::hardwareVersion, required, "hardware-version", "TEXT", "Its hardware version", "2.1"},
    {&Values::firmwareVersion, required, "firmware-version", "TEXT", "Its firmware version", "4.0.7"},
    {&Values::tube, required, "tube", "TEXT", "Its tube", "'Slim 0.9'"},
    {&Values::orientation, required, "orientation", "Left|Right", "The ear on which it is worn", "Left"},
    {&Values::birthdate, required, "birthdate", "YYYY-MM-DD", "The user's date of birth", "1980-05-17"},
    {&Values::sex, required, "sex", "Male|Female|NotKnown", "The user's sex", "Female"},
    {&Values::audiograms, required, "audiogram", "FILE", "JSON file of audiograms", "audiograms.json"},
    {&Values::check, optional, "check", "", "Draws nothing; prints every fault in the file with its path"},
    {&Values::chart, output, "chart", "FILE", "Writes a picture of the audiograms (SVG) to this file", "chart.svg"},
    {&Values::noColor, optional, "no-color", "", "Draws without colour, like the variable NO_COLOR"},
    {&Values::leftOut, output, "left-out", "FILE", "Writes the left ear's configuration to this file", "left.bin"},
    {&Values::rightOut, output, "right-out", "FILE", "Writes the right ear's configuration to this file", "right.bin"},
};

const Option& optionOf(Variable variable) { return *std::ranges::find(allOptions, variable, &Option::variable); }

// Decodes the value of an option: a date or an enumerator.
template <class T>
T read(const std::string& option, const std::string& given) {
  constexpr bool isDay = std::is_same_v<T, Date>;
  const auto decoded = JsonCodec<T>::decodeJson(JsonValue(isDay ? given + "T00:00:00" : given));
  if (!decoded) throw Failure(status::wrongUsage, option + ": not a date such as 1980-05-17");
  return *decoded;
}

void draw(Values& values, int stream) {
  winsize size{};
  if (ioctl(stream, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) size.ws_col = 80;
  const char* const noColor = std::getenv("NO_COLOR");
  const bool coloured = isatty(stream) != 0 && !values.noColor && (noColor == nullptr || *noColor == '\0');
  if (stream == STDERR_FILENO || values.printsAnswer())
    (stream == STDOUT_FILENO ? std::cout : std::cerr)
        << textChart(values.audiograms, size.ws_col, coloured) << std::flush;
  if (values.chart.empty()) return;
  values.outputs.write(values.chart, svgChart(values.audiograms));
  values.outputs.publish();
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

// The domain and the code are those of the platform error. If there is none, they are those of the Error.
JsonObject jsonOf(const Error& error) {
  const NSError* const platform = error.platformError();
  return {{"error",
           {{"case", cases[error.code()].name},
            {"domain", platform != nullptr ? std::string_view(platform->domain) : error.domain()},
            {"code", platform != nullptr ? platform->code : error.code()},
            {"message", wordsOf(error)}}}};
}

JsonObject jsonOf(const Unit&) { return {}; }

template <class T>
JsonObject jsonOf(const T& answer) {
  return answer.encodeJson();
}

// Returns true if the answer says that the service refused the request.
bool isRefusal(const AuthenticationResponse& answer) { return !answer.isSuccessful(); }
bool isRefusal(const ForgotPasswordResponse& answer) { return !answer.result(); }
template <class T>
bool isRefusal(const T&) {
  return false;
}

// Writes each configuration for which the user named a file. Returns false if the user named a file for an ear without
// a configuration.
bool store(const ConfigurationResponse& answer, Values& values) {
  const struct {
    const char* ear;
    std::optional<Data> data;
    const std::string& file;
  } ears[] = {{"left", answer.leftData(), values.leftOut}, {"right", answer.rightData(), values.rightOut}};
  bool isComplete = true;
  for (const auto& [ear, data, file] : ears) {
    const std::string missing = file.empty() ? "" : "; " + file + " is not written";
    say(std::string(ear) + " ear: " + (data ? std::to_string(data->size()) + " bytes" : "no configuration" + missing));
    if (data && !file.empty()) values.outputs.write(file, Foundation::textOf(*data));
    isComplete = isComplete && (data || file.empty());
  }
  values.outputs.publish();
  return isComplete;
}

// Makes a call and waits for its result. Prints it and returns the exit status.
template <class T>
int finish(const std::function<Promise<T, Error>()>& start, Values& values) {
  std::optional<Expected<T, Error>> outcome;
  std::string body = printedDuring([&] {
    const auto promise = start();
    wait([&] { return promise.waitFor(std::chrono::seconds(1)); });
    outcome = promise.get();
  });
  const Expected<T, Error>& result = *outcome;
  if (values.json) body = boost::json::serialize(result ? jsonOf(*result) : jsonOf(result.error())) + '\n';
  if (values.printsAnswer()) std::cout << (isatty(STDOUT_FILENO) != 0 ? printable(body) : body) << std::flush;
  if (!result) {
    say(wordsOf(result.error()));
    return cases[result.error().code()].status;
  }
  if constexpr (std::is_same_v<T, ConfigurationResponse>)
    if (!store(*result, values)) return status::noConfiguration;
  if (!isRefusal(*result)) return status::done;
  say("the service refused");
  return status::refused;
}

struct Call {
  const char* name;
  const char* help;
  std::vector<Variable> options;
  std::function<int(ApiService&, Values&)> run;
};

// `arguments` are the members of Values that are passed to the operation.
template <class T, class... Parameters, class... Arguments>
Call call(const char* name, const char* help, Promise<T, Error> (ApiService::*operation)(Parameters...),
          Arguments Values::*... arguments) {
  return {name, help, {arguments...}, [=](ApiService& service, Values& values) {
            return finish<T>([&] { return (service.*operation)(values.*arguments...); }, values);
          }};
}

const std::vector<Call> calls{
    call("login", "Signs in with e-mail address and password", &ApiService::login, &Values::email, &Values::password,
         &Values::appInstanceId, &Values::appInstanceName),
    call("relogin", "Signs in again with a refresh token", &ApiService::relogin, &Values::refreshToken,
         &Values::appInstanceId),
    call("register", "Creates an account", &ApiService::register_, &Values::email, &Values::password,
         &Values::confirmPassword, &Values::appInstanceId, &Values::appInstanceName),
    call("authenticate", "Signs in with a Facebook access token", &ApiService::authenticate, &Values::facebookToken,
         &Values::appInstanceId, &Values::appInstanceName),
    call("resend-validation-email", "Requests the e-mail with the confirmation link again",
         &ApiService::resendValidationEmail, &Values::accessToken),
    call("send-password-reset", "Requests an e-mail for a new password", &ApiService::sendPasswordReset,
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

// Adds the file of audiograms as a positional argument and as an option. `checkUsage` requires one of the two, because
// CLI11's rule for that makes the help hard to read.
CLI::Option* addFile(CLI::App& command, const Option& option, std::string& file) {
  const std::string name = "--" + option.name;
  command.add_option(name, file)->type_name(option.value)->group("");
  return command.add_option("FILE", file, option.help + ", - for standard input; or " + name + " FILE");
}

void addOption(CLI::App& command, const Option& option, Values& values) {
  const std::string name = "--" + option.name;
  const auto add = [&]<class T>(T Values::*variable) -> CLI::Option* {
    T& value = values.*variable;
    if constexpr (std::is_same_v<T, bool>) {
      return command.add_flag(name, value, option.help);
    } else if constexpr (std::is_same_v<T, std::vector<Audiogram>>) {
      return addFile(command, option, values.audiogramFile);
    } else if constexpr (std::is_same_v<T, double>) {
      return command.add_option(name, value, option.help)
          ->capture_default_str()
          ->check(CLI::Range(0.001, 1e6).description(""));
    } else if constexpr (std::is_same_v<T, std::vector<std::string>>) {
      return command.add_option(name, value, option.help)->expected(1)->take_all();
    } else if constexpr (std::is_convertible_v<std::string, T>) {
      return command.add_option(name, value, option.help)->capture_default_str();
    } else {
      const auto take = [name, &value](const std::string& given) { value = read<T>(name, given); };
      return command.add_option_function<std::string>(name, take, option.help);
    }
  };
  CLI::Option* const added = std::visit(add, option.variable);
  added->required(option.kind == required && !added->get_positional());
  if (!option.value.empty()) added->type_name(option.value);
  if (boost::contains(option.value, "|")) {
    std::vector<std::string> choices;
    boost::split(choices, option.value, boost::is_any_of("|"));
    added->transform(CLI::IsMember(choices, CLI::ignore_case).description(""));
  }
  if (option.kind == optional && option.value == "FILE") added->check(CLI::ExistingFile.description(""));
  if (option.kind == secret || option.isInEnvironment)
    added->envname(boost::to_upper_copy("HALVERN_" + boost::replace_all_copy(option.name, "-", "_")));
  if (option.kind == secret)
    command.add_option(name + "-file", "The same, from the first line of a file; - for standard input")
        ->type_name("FILE");
}

// Asks for a secret at the terminal. A new password must be typed twice.
std::string ask(const Option& option, const CLI::App& command) {
  const auto typed = askSecret(option.name);
  if (!typed) throw Failure(status::wrongUsage, "--" + option.name + ": the input ended");
  const CLI::Option* const confirmation = command.get_option_no_throw("--confirm-" + option.name);
  if (confirmation != nullptr && confirmation->count() == 0 && askSecret(option.name + " again") != typed)
    throw Failure(status::wrongUsage, "the two passwords differ");
  return *typed;
}

// Reads a secret from its file. Asks for it at the terminal if it is not in an option or in the environment.
void complete(const Option& option, const CLI::App& command, Values& values) {
  std::string& text = values.*std::get<std::string Values::*>(option.variable);
  const std::string name = "--" + option.name;
  if (const auto* const file = command.get_option(name + "-file"); file->count() > 0)
    text = firstLine(readFile(file->as<std::string>()));
  else if (command.count(name) == 0 && isatty(STDIN_FILENO) == 0)
    throw Failure(status::wrongUsage,
                  name + " or " + name + "-file is required, because standard input is not a terminal");
  else if (command.count(name) == 0)
    text = ask(option, command);
  if (text.ends_with('\n')) text = firstLine(text);  // CLI11 has read it from the environment
  if (text.empty()) throw Failure(status::wrongUsage, name + " is empty");
}

// All files that the command line names, from the definition of its options.
std::vector<FileUse> filesOf(const CLI::App& command) {
  std::vector<FileUse> files;
  for (const CLI::Option* const option : command.get_options()) {
    if (option->get_type_name() != "FILE" || option->count() == 0) continue;
    const auto known = std::ranges::find(allOptions, option->get_single_name(), &Option::name);
    const bool isOutput = known != allOptions.end() && known->kind == output;
    files.push_back({option->get_name(), option->as<std::string>(), isOutput});
  }
  return files;
}

// Checks what CLI11 cannot check. Throws a Failure before any file is read or removed.
void checkUsage(const CLI::App& command, const Values& values) {
  checkFiles(filesOf(command));
  const auto* const file = command.get_option_no_throw("FILE");
  if (file != nullptr && file->count() + command.count("--audiogram") != 1)
    throw Failure(status::wrongUsage, "one FILE of audiograms is required");
  for (const double seconds : {values.timeout, values.maxTime})
    if (std::isnan(seconds)) throw Failure(status::wrongUsage, "a time limit is not a number");
  if (values.check && !values.chart.empty()) throw Failure(status::wrongUsage, "--check writes no --chart");
  const std::string extension = std::filesystem::path(values.chart).extension();
  if (!extension.empty() && !boost::iequals(extension, ".svg"))
    throw Failure(status::wrongUsage, "--chart: only SVG is written, so the file name must end in .svg");
}

// Adds options and an example to a subcommand, and makes it call `run` with the values of the options.
template <class Run>
void complement(CLI::App& command, const std::vector<Variable>& variables, Run run) {
  const auto values = std::make_shared<Values>();
  std::string example = "Example:\n  halvern " + command.get_name();
  for (const Variable variable : variables) {
    const Option& option = optionOf(variable);
    addOption(command, option, *values);
    if (option.variable == Variable(&Values::audiograms))
      example += ' ' + option.sample;
    else if (!option.sample.empty())
      example += " --" + option.name + (option.kind == secret ? "-file " : " ") + option.sample;
  }
  command.footer(example + "\n\n" + status::help);
  command.final_callback([&command, variables, values, run] {
    checkUsage(command, *values);
    for (const FileUse& use : filesOf(command))
      if (use.isOutput) OutputFiles::removeOld(use.file);
    for (const Variable variable : variables)
      if (optionOf(variable).kind == secret) complete(optionOf(variable), command, *values);
    run(*values);
  });
}

// Reads the file of audiograms. Throws a Failure if the file has faults.
void requireAudiograms(Values& values) {
  auto audiograms = readAudiograms(readFile(values.audiogramFile));
  const std::string file = values.audiogramFile + ": ";
  if (!audiograms)
    throw Failure(status::wrongUsage, file + boost::replace_all_copy(audiograms.error(), "\n", '\n' + file));
  values.audiograms = *std::move(audiograms);
}

int run(const Call& call, Values& values) {
  if (values.verbose) Environment::log = [](const std::string& line) { say(line); };
  if (values.confirmPassword.empty()) values.confirmPassword = values.password;
  if (call.options[0] == Variable(&Values::audiograms)) requireAudiograms(values);
  if (!values.chart.empty()) draw(values, STDERR_FILENO);
  const auto milliseconds = [](double seconds) { return std::chrono::milliseconds(std::llround(seconds * 1000)); };
  URLSessionConfiguration configuration;
  configuration.timeoutIntervalForRequest = milliseconds(values.timeout);
  configuration.timeoutIntervalForResource = milliseconds(values.maxTime);
  if (!values.caFile.empty()) configuration.certificateAuthorityFile = values.caFile;
  configuration.pinnedPublicKeys = values.pins;
  if (!values.proxy.empty()) configuration.proxyUrl = values.proxy;
  HttpApiService service(values.baseUrl, configuration, values.apiKey);
  return call.run(service, values);
}

int chart(Values& values) {
  if (values.check) {
    const auto audiograms = readAudiograms(readFile(values.audiogramFile));
    if (audiograms) return status::done;
    std::cerr << printable(audiograms.error()) << '\n';
    return status::wrongUsage;
  }
  requireAudiograms(values);
  draw(values, STDOUT_FILENO);
  return status::done;
}

}  // namespace

void addCalls(CLI::App& app, int& status) {
  for (const Call& call : calls) {
    std::vector<Variable> options{&Values::baseUrl, &Values::apiKey,  &Values::caFile,  &Values::pins, &Values::proxy,
                                  &Values::timeout, &Values::maxTime, &Values::verbose, &Values::json};
    options.insert(options.end(), call.options.begin(), call.options.end());
    if (call.options[0] == Variable(&Values::audiograms))
      options.insert(options.end(), {&Values::chart, &Values::noColor, &Values::leftOut, &Values::rightOut});
    complement(*app.add_subcommand(call.name, call.help), options,
               [&call, &status](Values& values) { status = run(call, values); });
  }
  complement(*app.add_subcommand("chart", "Draws audiograms without sending them"),
             {&Values::audiograms, &Values::check, &Values::chart, &Values::noColor},
             [&status](Values& values) { status = chart(values); });
}
