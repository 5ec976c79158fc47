#include "Service.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <random>
#include <regex>

#include "Judging.hpp"

namespace HalvernApi::Testing {
namespace {

namespace json = boost::json;

// The number of valid sign-ins per account. A further sign-in invalidates the oldest one.
constexpr std::size_t maxSignIns = 32;

constexpr const char* mediaType = "application/json";

Answer wrongSignIn(std::string_view message) { return refusal(400, wrongCredentials, message); }

std::string base64(const std::string& bytes) {
  std::vector<unsigned char> text(bytes.size() * 2 + 5);  // including the final NUL
  const auto* const first = reinterpret_cast<const unsigned char*>(bytes.data());
  const int size = EVP_EncodeBlock(text.data(), first, static_cast<int>(bytes.size()));
  return {text.begin(), text.begin() + size};
}

using Value = const json::value&;

bool matches(Value value, const char* form) {
  return value.is_string() && value.get_string().size() < 256 &&
         std::regex_match(value.get_string().begin(), value.get_string().end(), std::regex(form));
}

// Formats the parsed date again to detect dates that do not exist, such as 31 June: the result differs from the input.
// A date counts as past if it is past in any time zone; the largest offset is 14 hours ahead of UTC.
bool isPastDate(Value value) {
  constexpr auto form = "%Y-%m-%dT%H:%M:%S";
  std::tm time{};
  if (!value.is_string() || ::strptime(value.get_string().c_str(), form, &time) == nullptr) return false;
  const std::time_t moment = ::timegm(&time);
  char again[24];
  const std::size_t size = std::strftime(again, sizeof again, form, &time);
  return value.get_string() == std::string_view(again, size) && moment <= std::time(nullptr) + 14L * 60 * 60;
}

constexpr Kind optionalText{"a string or null", [](Value value) { return value.is_string() || value.is_null(); }};
constexpr Kind newPassword{"a string of 8 characters or more",
                           [](Value value) { return value.is_string() && value.get_string().size() >= 8; }};
constexpr Kind email{"an e-mail address", [](Value value) { return matches(value, R"([^@\s]+@[^@\s]+\.[^@\s.]+)"); }};
constexpr Kind date{"a date such as 1980-05-17T00:00:00, and not in the future", isPastDate};
constexpr Kind sex{"Male, Female or NotKnown", [](Value value) { return matches(value, "Male|Female|NotKnown"); }};
constexpr Kind orientation{"Left or Right", [](Value value) { return matches(value, "Left|Right"); }};
constexpr Kind integer{"an integer", [](Value value) { return value.is_int64(); }};
constexpr Kind number{"a number", [](Value value) { return value.is_number(); }};
constexpr Field pointFields[] = {{"frequency", integer}, {"volume", number}};
constexpr Kind points{"an array of frequencies and volumes", [](Value value) { return isArrayOf(pointFields, value); }};
constexpr Field audiogramFields[] = {{"orientation", orientation}, {"serialNumber"}, {"tube"}, {"values", points}};
constexpr Kind audiograms{"an array of audiograms", [](Value value) { return isArrayOf(audiogramFields, value); }};

// The gain in decibels for each frequency, by the half-gain rule, as ASCII text that is readable in a hex dump. If
// there are several audiograms for an ear, the last one is used.
json::value configuration(const json::array& all, std::string_view ear) {
  const json::object* found = nullptr;
  for (const json::value& audiogram : all)
    if (get(audiogram.get_object(), "orientation") == ear) found = &audiogram.get_object();
  if (found == nullptr) return nullptr;
  std::map<std::int64_t, long> gains;
  for (const json::value& point : found->at("values").get_array())
    gains[point.at("frequency").get_int64()] =
        std::lround(std::clamp(point.at("volume").to_number<double>(), 0.0, 120.0) / 2);
  std::string bytes(ear);
  for (const auto& [hertz, gain] : gains) bytes += ' ' + std::to_string(hertz) + '=' + std::to_string(gain);
  return json::value_from(base64(bytes));
}

// The first sign-in for which `holds` returns true, and its account. Null pointers if there is none.
template <class Condition>
std::pair<Account*, SignIn*> findSignIn(Service& service, Condition holds) {
  for (auto& [address, account] : service.accounts)
    for (SignIn& one : account.signIns)
      if (holds(one)) return {&account, &one};
  return {};
}

constexpr Field loginFields[] = {{"email"}, {"password"}, {"appInstanceId"}, {"appInstanceName"}};
Answer login(Service& service, const json::object& body, Account*) {
  Account* const account = service.find(get(body, "email"));
  return account != nullptr && account->password == get(body, "password")
             ? service.signIn(*account, body)
             : wrongSignIn("The e-mail address or the password is wrong.");
}

constexpr Field reloginFields[] = {{"refreshToken"}, {"appInstanceId"}};
Answer relogin(Service& service, const json::object& body, Account*) {
  const auto [account, last] = findSignIn(service, [&](const SignIn& one) {
    return one.refreshToken == get(body, "refreshToken") && one.appInstanceId == get(body, "appInstanceId");
  });
  if (account == nullptr) return wrongSignIn("The refresh token is not valid.");
  last->refreshToken.reset();  // a refresh token is valid once; the answer contains the next one
  return service.signIn(*account, body);
}

constexpr Field registerFields[] = {
    {"email", email}, {"password", newPassword}, {"confirmPassword"}, {"appInstanceId"}, {"appInstanceName"}};
Answer register_(Service& service, const json::object& body, Account*) {
  if (body.at("password") != body.at("confirmPassword")) return invalid({"The two passwords differ."});
  if (service.find(get(body, "email")) != nullptr)
    return refusal(400, taken, "There is an account for this e-mail address already.");
  Account& account = service.make(get(body, "email"), get(body, "password"), false);
  service.mailConfirmation(account);
  return service.signIn(account, body);
}

constexpr Field facebookFields[] = {{"facebookToken"}, {"appInstanceId"}, {"appInstanceName"}};
Answer authenticate(Service& service, const json::object& body, Account*) {
  const auto token = service.facebookTokens.find(get(body, "facebookToken"));
  if (token == service.facebookTokens.end()) return wrongSignIn("Facebook does not know this token.");
  Account* const account = service.find(token->second);
  return service.signIn(account ? *account : service.make(token->second, {}, true), body);
}

Answer resendValidationEmail(Service& service, const json::object&, Account* account) {
  service.mailConfirmation(*account);
  return ok({{"sent", true}});
}

constexpr Field resetFields[] = {{"email", email}};
Answer sendPasswordReset(Service& service, const json::object& body, Account*) {
  const Account* const account = service.find(get(body, "email"));
  if (account != nullptr) service.outbox.push_back({account->email, "You have asked for a new password."});
  return ok({{"result", account != nullptr}});
}

Answer checkIfValidated(Service&, const json::object&, Account* account) {
  return ok({{"result", account->confirmed}});
}

constexpr Field deviceFields[] = {{"appInstanceId"},
                                  {"hardwareVersion"},
                                  {"firmwareVersion"},
                                  {"productName"},
                                  {"orientation", orientation},
                                  {"tube"},
                                  {"serialNumber", optionalText}};
Answer registerDevice(Service&, const json::object& body, Account* account) {
  account->lastDevices[body.at("orientation").get_string()] = body.at("productName");
  return ok({{"hearingAids", ++account->hearingAids}});
}

constexpr Field profileFields[] = {{"aids", audiograms}};
Answer profile(Service&, const json::object& body, Account*) {
  const json::array& aids = body.at("aids").get_array();
  return ok({{"leftConfiguration", configuration(aids, "Left")}, {"rightConfiguration", configuration(aids, "Right")}});
}

constexpr Field updateFields[] = {{"dateOfBirth", date}, {"sex", sex}};
Answer update(Service&, const json::object& body, Account* account) {
  account->dateOfBirth = body.at("dateOfBirth");
  account->sex = body.at("sex");
  return ok({{"stored", true}});
}

// `handle` gets a body that has passed the check, and the account of the access token. The account is null if the
// endpoint needs no access token.
struct Endpoint {
  std::string_view name, path;
  bool needsAccessToken;
  std::span<const Field> fields;  // empty: there must be no body
  Answer (*handle)(Service&, const json::object& body, Account*);
};

// In the order of Operation. It is constexpr so that it can be used while static objects are destroyed.
constexpr Endpoint endpoints[] = {
    {"login", "/api/v1/account/login", false, loginFields, login},
    {"relogin", "/api/v1/account/re-login", false, reloginFields, relogin},
    {"register", "/api/v1/account/register", false, registerFields, register_},
    {"authenticate", "/api/v1/account/authenticate-with-facebook", false, facebookFields, authenticate},
    {"resendValidationEmail", "/api/v1/account/resend-confirmation-email", true, {}, resendValidationEmail},
    {"sendPasswordReset", "/api/v1/account/forgot-password", false, resetFields, sendPasswordReset},
    {"checkIfValidated", "/api/v1/account/confirmed-email", true, {}, checkIfValidated},
    {"registerDevice", "/api/v1/account/register-hearing-aid", true, deviceFields, registerDevice},
    {"profile", "/api/v1/account/personalize-hearing-aids", true, profileFields, profile},
    {"update", "/api/v1/account/age-and-sex", true, updateFields, update},
};

const Endpoint& endpoint(Operation operation) { return endpoints[static_cast<std::size_t>(operation)]; }

std::optional<Operation> operationWhere(std::string_view Endpoint::*column, std::string_view wanted) {
  const auto* const found = std::ranges::find(endpoints, wanted, column);
  if (found == std::end(endpoints)) return std::nullopt;
  return static_cast<Operation>(found - endpoints);
}

}  // namespace

std::string_view path(Operation operation) { return endpoint(operation).path; }

std::string_view name(Operation operation) { return endpoint(operation).name; }

std::optional<Operation> operationAt(std::string_view target) {
  return operationWhere(&Endpoint::path, target.substr(0, target.find('?')));
}

std::optional<Operation> operationNamed(std::string_view name) { return operationWhere(&Endpoint::name, name); }

std::string randomToken() {
  std::random_device random;
  char token[33];
  (void)std::snprintf(token, sizeof token, "%08x%08x%08x%08x", random(), random(), random(), random());
  return token;
}

Answer Service::answer(const SeenRequest& request) {
  if (!request.operation) {
    for (auto& [address, account] : accounts)
      if (request.method == "GET" && link(account) == baseUrl + request.target) {
        account.confirmed = true;
        return {.body = "Your e-mail address is confirmed.\n", .contentType = "text/plain"};
      }
    return refusal(404, notFound, "There is nothing here.");
  }
  if (request.method != "POST") return wrongMethod("POST");
  if (request.header("Api-Key") != apiKey) return refusal(401, notAuthorized, "The API key is missing or wrong.");
  const auto& [name, path, needsAccessToken, fields, handle] = endpoint(*request.operation);
  const auto [account, last] = findSignIn(*this, [&](const SignIn& one) {
    return one.accessToken == request.header("Access-Token") && one.expiry > std::chrono::steady_clock::now();
  });
  if (needsAccessToken && account == nullptr)
    return refusal(401, notAuthorized, "The access token is missing, wrong or expired.");
  if (request.header("Accept") != mediaType) return invalid({"The header Accept must be application/json."});
  if (fields.empty()) {
    if (!request.body.empty() || request.header("Content-Type")) return invalid({"There must be no body."});
    return handle(*this, {}, account);
  }
  if (request.header("Content-Type") != mediaType)
    return invalid({"The header Content-Type must be application/json."});
  return judge(request.body, fields, [&, handle = handle, account = account](const json::object& body) {
    return handle(*this, body, account);
  });
}

Account* Service::find(const std::string& address) {
  const auto account = accounts.find(address);
  return account != accounts.end() ? &account->second : nullptr;
}

Account& Service::make(const std::string& address, const std::optional<std::string>& password, bool confirmed) {
  return accounts[address] = {address, password, confirmed, randomToken()};
}

Answer Service::signIn(Account& account, const json::object& body) {
  const auto expiry = std::chrono::steady_clock::now() + accessTokenLifetime;
  const SignIn& one =
      account.signIns.emplace_back(SignIn{get(body, "appInstanceId"), randomToken(), expiry, randomToken()});
  if (account.signIns.size() > maxSignIns) account.signIns.pop_front();
  return ok({{"isSuccessful", true},
             {"isEmailConfirmed", account.confirmed},
             {"accessToken", one.accessToken},
             {"refreshToken", *one.refreshToken},
             {"dateOfBirth", account.dateOfBirth},
             {"sex", account.sex},
             {"email", account.email}});
}

void Service::mailConfirmation(const Account& account) {
  outbox.push_back({account.email, "Confirm your e-mail address: " + link(account)});
}

std::string Service::link(const Account& account) const {
  return baseUrl + "/confirm?token=" + account.confirmationToken;
}

}  // namespace HalvernApi::Testing
