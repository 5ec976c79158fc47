#include "Service.hpp"

#include <HalvernApi/Audiogram.hpp>
#include <HalvernApi/Extensions/Date+JsonGen.hpp>
#include <HalvernApi/Platform/Statham/JsonCodec.hpp>
#include <HalvernApi/Sex.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <random>

namespace HalvernApi::Testing {
namespace {

namespace json = boost::json;

// The service's own numbers for the reasons of a refusal.
enum ErrorCode { notAuthorized = 1, notFound, methodNotAllowed, notJson, invalidFields, wrongCredentials, taken };

Answer ok(const json::value& body) { return {.body = json::serialize(body)}; }

Answer refusal(int status, ErrorCode code, std::string_view message, const std::vector<std::string>& errors = {}) {
  json::value list;
  if (!errors.empty()) list = json::array(errors.begin(), errors.end());
  return {.status = status,
          .body = json::serialize(
              json::object{{"errorCode", code}, {"message", message}, {"validationErrors", std::move(list)}})};
}

Answer wrongSignIn(std::string_view message) { return refusal(400, wrongCredentials, message); }

std::string randomToken() {
  std::random_device random;
  char token[33];
  std::snprintf(token, sizeof token, "%08x%08x%08x%08x", random(), random(), random(), random());
  return token;
}

std::string base64(std::string_view bytes) {
  constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t start = 0; start < bytes.size(); start += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - start);
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i)
      group = group << 8 | (i < count ? static_cast<unsigned char>(bytes[start + i]) : 0U);
    for (std::size_t i = 0; i < 4; ++i) text += i <= count ? alphabet[group >> (18 - 6 * i) & 63] : '=';
  }
  return text;
}

// What a field of a body must hold, and the words for it.
struct Kind {
  std::string_view expectation;
  bool (*holds)(const json::value&);
};

bool isText(const json::value& value) { return value.is_string(); }
bool isTextOrNull(const json::value& value) { return value.is_string() || value.is_null(); }
bool isPassword(const json::value& value) { return value.is_string() && value.get_string().size() >= 8; }

bool isEmail(const json::value& value) {
  if (!value.is_string()) return false;
  const std::string_view text = value.get_string();
  const std::size_t at = text.find('@'), dot = text.rfind('.');
  return at != 0 && at == text.rfind('@') && dot != text.npos && dot > at + 1 && dot + 1 < text.size() &&
         text.find_first_of(" \t\r\n") == text.npos;
}

template <class T>
bool decodes(const json::value& value) {
  return JsonCodec<T>::decodeJson(value).has_value();
}

struct Field {
  std::string_view key;
  const Kind& kind;
};

// The gain in decibels for each frequency, by the half-gain rule, in a form that shows in a hex dump. Of several
// audiograms for an ear the last counts.
json::value configuration(const std::vector<Audiogram>& all, DeviceOrientation ear) {
  const auto found = std::find_if(all.rbegin(), all.rend(),
                                  [&](const Audiogram& audiogram) { return audiogram.orientation() == ear; });
  if (found == all.rend()) return nullptr;
  std::map<std::int64_t, long> gains;
  for (const FrequencyVolumePair& point : found->values())
    gains[point.frequency()] = std::lround(std::clamp(point.volume(), 0.0, 120.0) / 2);
  std::string bytes(ear.rawValue());
  for (const auto& [hertz, gain] : gains) bytes += ' ' + std::to_string(hertz) + '=' + std::to_string(gain);
  return json::value_from(base64(bytes));
}

std::string get(const json::object& body, std::string_view key) { return std::string(body.at(key).get_string()); }

json::value orNull(const std::optional<std::string>& value) {
  return value ? json::value_from(*value) : json::value(nullptr);
}

}  // namespace

struct Service::Endpoint {
  std::string_view path;
  bool needsAccessToken;
  std::vector<Field> fields;  // none: the body plays no part
  Handler handler;
};

const Service::Endpoint& Service::endpoint(Operation operation) {
  static constexpr Kind text{"a text", isText};
  static constexpr Kind optionalText{"a text or null", isTextOrNull};
  static constexpr Kind email{"an e-mail address", isEmail};
  static constexpr Kind newPassword{"a text of 8 characters or more", isPassword};
  static constexpr Kind date{"a date such as 1980-05-17T00:00:00", decodes<Date>};
  static constexpr Kind sex{"Male, Female or NotKnown", decodes<Sex>};
  static constexpr Kind orientation{"Left or Right", decodes<DeviceOrientation>};
  static constexpr Kind audiograms{"an array of audiograms", decodes<std::vector<Audiogram>>};
  static const std::array<Endpoint, 10> endpoints{{
      {"/api/v1/account/login",
       false,
       {{"email", text}, {"password", text}, {"appInstanceId", text}, {"appInstanceName", text}},
       &Service::login},
      {"/api/v1/account/re-login", false, {{"refreshToken", text}, {"appInstanceId", text}}, &Service::relogin},
      {"/api/v1/account/register",
       false,
       {{"email", email},
        {"password", newPassword},
        {"confirmPassword", text},
        {"appInstanceId", text},
        {"appInstanceName", text}},
       &Service::register_},
      {"/api/v1/account/authenticate-with-facebook",
       false,
       {{"facebookToken", text}, {"appInstanceId", text}, {"appInstanceName", text}},
       &Service::authenticate},
      {"/api/v1/account/resend-confirmation-email", true, {}, &Service::resendValidationEmail},
      {"/api/v1/account/forgot-password", false, {{"email", email}}, &Service::sendPasswordReset},
      {"/api/v1/account/confirmed-email", true, {}, &Service::checkIfValidated},
      {"/api/v1/account/register-hearing-aid",
       true,
       {{"appInstanceId", text},
        {"hardwareVersion", text},
        {"firmwareVersion", text},
        {"productName", text},
        {"orientation", orientation},
        {"tube", text},
        {"serialNumber", optionalText}},
       &Service::registerDevice},
      {"/api/v1/account/personalize-hearing-aids", true, {{"aids", audiograms}}, &Service::profile},
      {"/api/v1/account/age-and-sex", true, {{"dateOfBirth", date}, {"sex", sex}}, &Service::update},
  }};
  return endpoints.at(static_cast<std::size_t>(operation));
}

std::string_view path(Operation operation) { return Service::path(operation); }

std::optional<Operation> operationAt(std::string_view target) {
  const std::string_view wanted = target.substr(0, target.find('?'));
  for (int i = 0; i <= static_cast<int>(Operation::update); ++i)
    if (path(static_cast<Operation>(i)) == wanted) return static_cast<Operation>(i);
  return std::nullopt;
}

Service::Service(Sandbox::Options options, std::string baseUrl)
    : options_(std::move(options)), baseUrl_(std::move(baseUrl)) {
  allowFacebookToken("sandbox-facebook-token", "facebook.user@example.com");
}

std::string_view Service::path(Operation operation) { return endpoint(operation).path; }

Answer Service::answer(const SeenRequest& request) {
  constexpr std::string_view confirmation = "/confirm?token=";
  Answer answer;
  std::vector<std::pair<std::string, std::string>> mails;
  {
    const std::lock_guard lock(mutex_);
    if (request.operation)
      answer = judge(*request.operation, request);
    else if (request.method == "GET" && request.target.starts_with(confirmation))
      answer = confirm(std::string_view(request.target).substr(confirmation.size()));
    else
      answer = refusal(404, notFound, "There is nothing here.");
    mails.swap(outbox_);
  }
  if (options_.mail)
    for (const auto& [address, words] : mails) options_.mail(address, words);
  return answer;
}

Answer Service::judge(Operation operation, const SeenRequest& request) {
  const Endpoint& endpoint = Service::endpoint(operation);
  if (request.method != "POST") {
    Answer answer = refusal(405, methodNotAllowed, "Only POST is allowed here.");
    answer.headers.emplace_back("Allow", "POST");
    return answer;
  }
  if (request.header("Api-Key") != options_.apiKey)
    return refusal(401, notAuthorized, "The API key is missing or wrong.");

  Account* account = nullptr;
  if (endpoint.needsAccessToken) {
    const auto token = accessTokens_.find(request.header("Access-Token").value_or(""));
    if (token == accessTokens_.end() || token->second.expiry <= std::chrono::steady_clock::now())
      return refusal(401, notAuthorized, "The access token is missing, wrong or expired.");
    account = token->second.account;
  }

  json::value body = json::object();
  if (!endpoint.fields.empty()) {
    boost::system::error_code error;
    body = json::parse(request.body, error);
    if (error || !body.is_object()) return refusal(400, notJson, "The body is not a JSON object.");
    std::vector<std::string> errors;
    for (const auto& [key, kind] : endpoint.fields)
      if (const json::value* const value = body.get_object().if_contains(key); value == nullptr || !kind.holds(*value))
        errors.push_back("The field " + std::string(key) + " must be " + std::string(kind.expectation) + '.');
    if (!errors.empty()) return refusal(400, invalidFields, "The request is not valid.", errors);
  }
  return (this->*endpoint.handler)(body.get_object(), account);
}

Answer Service::login(const Body& body, Account*) {
  Account* const account = find(get(body, "email"));
  if (account == nullptr || account->password != get(body, "password"))
    return wrongSignIn("The e-mail address or the password is wrong.");
  return signIn(*account);
}

// A refresh token is good for one sign-in, which hands out the next.
Answer Service::relogin(const Body& body, Account*) {
  const auto token = refreshTokens_.extract(get(body, "refreshToken"));
  return token ? signIn(*token.mapped()) : wrongSignIn("The refresh token is not valid.");
}

Answer Service::register_(const Body& body, Account*) {
  const std::string address = get(body, "email");
  if (body.at("password") != body.at("confirmPassword"))
    return refusal(400, invalidFields, "The request is not valid.", {"The two passwords differ."});
  if (find(address) != nullptr) return refusal(400, taken, "There is an account for this e-mail address already.");
  Account& account = make(address, get(body, "password"), false);
  mailConfirmation(account);
  return signIn(account);
}

Answer Service::authenticate(const Body& body, Account*) {
  const auto token = facebookTokens_.find(get(body, "facebookToken"));
  if (token == facebookTokens_.end()) return wrongSignIn("Facebook does not know this token.");
  Account* const account = find(token->second);
  return signIn(account != nullptr ? *account : make(token->second, std::nullopt, true));
}

Answer Service::resendValidationEmail(const Body&, Account* account) {
  mailConfirmation(*account);
  return ok({{"sent", true}});
}

Answer Service::sendPasswordReset(const Body& body, Account*) {
  const Account* const account = find(get(body, "email"));
  if (account != nullptr) outbox_.emplace_back(account->email, "You have asked for a new password.");
  return ok({{"result", account != nullptr}});
}

Answer Service::checkIfValidated(const Body&, Account* account) { return ok({{"result", account->confirmed}}); }

Answer Service::registerDevice(const Body&, Account* account) { return ok({{"hearingAids", ++account->hearingAids}}); }

Answer Service::profile(const Body& body, Account*) {
  const std::vector<Audiogram> aids = *JsonCodec<std::vector<Audiogram>>::decodeJson(body.at("aids"));
  return ok({{"leftConfiguration", configuration(aids, DeviceOrientation::left)},
             {"rightConfiguration", configuration(aids, DeviceOrientation::right)}});
}

Answer Service::update(const Body& body, Account* account) {
  account->dateOfBirth = get(body, "dateOfBirth");
  account->sex = get(body, "sex");
  return ok({{"stored", true}});
}

Answer Service::confirm(std::string_view token) {
  for (auto& [address, account] : accounts_)
    if (account.confirmationToken == token) {
      account.confirmed = true;
      return {.body = "Your e-mail address is confirmed.\n", .contentType = "text/plain"};
    }
  return {.status = 404, .body = "This link is not valid.\n", .contentType = "text/plain"};
}

void Service::addAccount(const std::string& address, const std::string& password) {
  const std::lock_guard lock(mutex_);
  make(address, password, true);
}

void Service::allowFacebookToken(const std::string& token, const std::string& address) {
  const std::lock_guard lock(mutex_);
  facebookTokens_[token] = address;
}

bool Service::confirmEmail(const std::string& address) {
  const std::lock_guard lock(mutex_);
  Account* const account = find(address);
  if (account != nullptr) account->confirmed = true;
  return account != nullptr;
}

std::optional<std::string> Service::confirmationLink(const std::string& address) const {
  const std::lock_guard lock(mutex_);
  const auto account = accounts_.find(address);
  if (account == accounts_.end()) return std::nullopt;
  return link(account->second);
}

void Service::expireAccessTokens() {
  const std::lock_guard lock(mutex_);
  accessTokens_.clear();
}

Service::Account* Service::find(std::string_view address) {
  const auto account = accounts_.find(address);
  return account != accounts_.end() ? &account->second : nullptr;
}

Service::Account& Service::make(const std::string& address, std::optional<std::string> password, bool confirmed) {
  Account& account = accounts_[address];
  account = {.email = address,
             .password = std::move(password),
             .confirmed = confirmed,
             .confirmationToken = randomToken(),
             .dateOfBirth = {},
             .sex = {}};
  return account;
}

Answer Service::signIn(Account& account) {
  const std::string accessToken = randomToken();
  const std::string refreshToken = randomToken();
  accessTokens_[accessToken] = {&account, std::chrono::steady_clock::now() + options_.accessTokenLifetime};
  refreshTokens_[refreshToken] = &account;
  return ok({{"isSuccessful", true},
             {"isEmailConfirmed", account.confirmed},
             {"accessToken", accessToken},
             {"refreshToken", refreshToken},
             {"dateOfBirth", orNull(account.dateOfBirth)},
             {"sex", orNull(account.sex)},
             {"email", account.email}});
}

void Service::mailConfirmation(const Account& account) {
  outbox_.emplace_back(account.email, "Confirm your e-mail address: " + link(account));
}

std::string Service::link(const Account& account) const {
  return baseUrl_ + "/confirm?token=" + account.confirmationToken;
}

}  // namespace HalvernApi::Testing
