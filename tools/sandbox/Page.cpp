#include "Page.hpp"

#include <utf8.h>

#include <HalvernApi/Audiogram.hpp>
#include <HalvernApi/Platform/Statham/JsonCodec.hpp>
#include <algorithm>
#include <boost/algorithm/string.hpp>

#include "Judging.hpp"

namespace HalvernApi::Testing {

extern const std::string_view pageHtml;  // the content of Page.html

namespace {

namespace json = boost::json;

constexpr std::size_t maxAccountsShown = 200, maxCallsListed = 100, maxTextShown = 1024;

// Replaces bytes that are not UTF-8, because JSON cannot contain them.
json::string utf8Of(std::string_view bytes) {
  json::string valid;
  utf8::replace_invalid(bytes.begin(), bytes.end(), std::back_inserter(valid));
  return valid;
}

// The first `maxTextShown` bytes. A character that would be cut there is left out.
std::string_view cut(std::string_view text) {
  if (text.size() <= maxTextShown) return text;
  std::size_t size = maxTextShown;
  while (size > 0 && (text[size] & 0xC0) == 0x80) --size;
  return text.substr(0, size);
}

json::object jsonOf(const Answer& answer) {
  json::array headers{{"Content-Type", utf8Of(answer.contentType)}};
  for (const auto& [name, value] : answer.headers) headers.push_back({utf8Of(name), utf8Of(value)});
  return {{"status", answer.status}, {"headers", headers}, {"body", utf8Of(answer.body)}};
}

Answer shortened(const Answer& answer) {
  return {answer.status, std::string(cut(answer.body)), std::string(cut(answer.contentType)), answer.headers};
}

json::object jsonOf(Operation operation, const Script& script) {
  return {{"operation", name(operation)},
          {"calls", script.calls == Script::always ? json::value("all") : json::value(script.calls)},
          {"delay", script.delay.count()},
          {"drop", script.drop},
          {"never", script.never},
          {"answer", script.answer ? json::value(jsonOf(shortened(*script.answer))) : nullptr}};
}

json::object jsonOf(const Account& account) {
  json::object products = account.lastDevices;
  for (auto& product : products) product.value() = cut(product.value().get_string());
  return {{"email", cut(account.email)}, {"isEmailConfirmed", account.confirmed}, {"dateOfBirth", account.dateOfBirth},
          {"sex", account.sex},          {"hearingAids", account.hearingAids},    {"lastHearingAids", products}};
}

json::object summaryOf(const Call& call) {
  constexpr const char* outcomes[] = {"waiting", "answered", "closed", "abandoned"};
  const auto time = call.time.time_since_epoch();
  const auto& operation = call.request.operation;
  return {{"number", call.number},
          {"time", std::chrono::duration_cast<std::chrono::milliseconds>(time).count()},
          {"operation", operation ? json::value(name(*operation)) : nullptr},
          {"method", utf8Of(cut(call.request.method))},
          {"target", utf8Of(cut(call.request.target))},
          {"outcome", outcomes[call.outcome]},
          {"status", call.outcome == Call::answered ? json::value(call.answer.status) : nullptr},
          {"milliseconds", call.outcome == Call::waiting ? nullptr : json::value(call.duration.count())}};
}

json::value chartOf(const std::string& body, const Chart& chart) {
  boost::system::error_code error;
  const json::value parsed = json::parse(body, error);
  const json::value* const aids = parsed.is_object() ? parsed.get_object().if_contains("aids") : nullptr;
  if (!chart || aids == nullptr) return nullptr;
  const auto decoded = Statham::JsonCodec<std::vector<Audiogram>>::decodeJson(*aids);
  return decoded ? json::value(utf8Of(chart(*decoded))) : nullptr;
}

json::object detailsOf(const Call& call) {
  json::object details = summaryOf(call);
  details["target"] = utf8Of(call.request.target);
  json::array& headers = details["headers"].emplace_array();
  for (const auto& [name, value] : call.request.headers) headers.push_back({utf8Of(name), utf8Of(value)});
  details["body"] = utf8Of(call.request.body);
  details["bodySize"] = call.bodySize;
  if (call.outcome == Call::answered) {
    details["answer"] = jsonOf(call.answer);
    details["answerSize"] = call.answerSize;
  }
  return details;
}

json::object changesSince(const State& state, std::size_t version) {
  json::array calls, scripts, accounts, mails;
  for (const Call& call : state.calls)
    if (call.version > version) calls.push_back(summaryOf(call));
  for (const auto& [operation, queue] : state.scripts)
    for (const Script& script : queue)
      if (script.calls > 0) scripts.push_back(jsonOf(operation, script));
  for (const auto& [email, account] : state.service.accounts)
    if (accounts.size() < maxAccountsShown) accounts.push_back(jsonOf(account));
  for (const Mail& mail : state.mails) mails.push_back({{"email", cut(mail.email)}, {"text", mail.text}});
  return {{"oldestCall", state.calls.empty() ? state.nextNumber : state.calls.front().number},
          {"calls", std::move(calls)},
          {"scripts", std::move(scripts)},
          {"accounts", std::move(accounts)},
          {"accountCount", state.service.accounts.size()},
          {"mails", std::move(mails)}};
}

using Value = const json::value&;
using Body = const json::object&;

bool isFrom(std::int64_t least, std::int64_t most, Value value) {
  return value.is_int64() && value.get_int64() >= least && value.get_int64() <= most;
}

constexpr Kind flag{"true or false", [](Value value) { return value.is_bool(); }};
constexpr Kind operationName{"the name of an operation",
                             [](Value value) { return value.is_string() && operationNamed(value.get_string()); }};
constexpr Kind callCount{"an integer from 0 to 1000000, or \"all\"",
                         [](Value value) { return value == json::value("all") || isFrom(0, 1'000'000, value); }};
constexpr Kind milliseconds{"an integer from 0 to 86400000", [](Value value) { return isFrom(0, 86'400'000, value); }};
constexpr Kind statusCode{"an integer from 200 to 599", [](Value value) { return isFrom(200, 599, value); }};
constexpr Kind texts{"an array of strings", [](Value value) {
                       return value.is_array() &&
                              std::ranges::all_of(value.get_array(), [](Value one) { return one.is_string(); });
                     }};
constexpr Kind headerValue{"a string without control characters", [](Value value) {
                             return value.is_string() && std::ranges::none_of(value.get_string(), [](char one) {
                                      return static_cast<unsigned char>(one) < ' ';
                                    });
                           }};

constexpr Field scriptFields[] = {{"operation", operationName},   {"calls", callCount, false},
                                  {"delay", milliseconds, false}, {"never", flag, false},
                                  {"drop", flag, false},          {"status", statusCode, false},
                                  {"message", text, false},       {"validationErrors", texts, false},
                                  {"body", text, false},          {"contentType", headerValue, false}};

std::optional<Answer> scriptedAnswer(Body body) {
  const auto given = [&](const char* key) { return body.if_contains(key); };
  const auto* const errors = given("validationErrors");
  const auto* const message = given("message");
  if (!given("status") && !message && !errors && !given("body") && !given("contentType")) return std::nullopt;
  Answer answer{.status = errors != nullptr ? 400 : 200};
  if (const auto* const status = given("status")) answer.status = static_cast<int>(status->get_int64());
  if (given("contentType")) answer.contentType = get(body, "contentType");
  if (given("body")) {
    answer.body = get(body, "body");
  } else if (message != nullptr || errors != nullptr || answer.status >= 400) {
    std::vector<std::string> list;
    if (errors != nullptr) list = json::value_to<std::vector<std::string>>(*errors);
    const ErrorCode code = answer.status == 401 ? notAuthorized : invalidFields;
    answer.body =
        refusal(answer.status, code, message ? get(body, "message") : "This is a scripted failure.", list).body;
  }
  return answer;
}

Script scriptOf(Body body) {
  Script script;
  if (const auto* const calls = body.if_contains("calls"))
    script.calls = calls->is_string() ? Script::always : static_cast<std::size_t>(calls->get_int64());
  if (const auto* const delay = body.if_contains("delay")) script.delay = std::chrono::milliseconds(delay->get_int64());
  if (const auto* const never = body.if_contains("never")) script.never = never->get_bool();
  if (const auto* const drop = body.if_contains("drop")) script.drop = drop->get_bool();
  script.answer = scriptedAnswer(body);
  return script;
}

constexpr Field accountFields[] = {{"email"}, {"password"}};
constexpr Field confirmFields[] = {{"email"}};

// The requests that change the state. Each is a POST whose JSON body has these fields.
constexpr struct Change {
  std::string_view path;
  std::span<const Field> fields;
  bool needsAccount;  // the account of the e-mail address in the body
  void (*apply)(State&, Body);
} changes[] = {
    {"/sandbox/script", scriptFields, false,
     [](State& state, Body body) { state.arm(*operationNamed(get(body, "operation")), scriptOf(body)); }},
    {"/sandbox/account", accountFields, false,
     [](State& state, Body body) { state.addAccount(get(body, "email"), get(body, "password")); }},
    {"/sandbox/confirm", confirmFields, true, [](State& state, Body body) { state.confirm(get(body, "email")); }},
    {"/sandbox/expire-access-tokens", {}, false, [](State& state, Body) { state.expireAccessTokens(); }},
    {"/sandbox/reset", {}, false, [](State& state, Body) { state.resetAll(); }},
};

Answer html() {
  const std::string nonce = randomToken();
  return {.body = boost::replace_all_copy(std::string(pageHtml), "NONCE", nonce),
          .contentType = "text/html; charset=utf-8",
          .headers = {{"Content-Security-Policy",
                       "default-src 'none'; script-src 'nonce-" + nonce + "'; style-src 'nonce-" + nonce +
                           "'; connect-src 'self'; img-src data:; base-uri 'none'; form-action 'none'; "
                           "frame-ancestors 'none'; require-trusted-types-for 'script'"}}};
}

// `which` is the name of an operation, the number of a call, or empty for all calls. Several calls are listed newest
// first.
Answer callsAt(State& state, const std::string& which, const Chart& chart) {
  const auto operation = operationNamed(which);
  if (which.empty() || operation) {
    json::array found;
    for (auto call = state.calls.rbegin(); call != state.calls.rend() && found.size() < maxCallsListed; ++call)
      if (which.empty() || call->request.operation == operation) found.push_back(detailsOf(*call));
    return ok(found);
  }
  const Call* const call = state.find(std::strtoul(which.c_str(), nullptr, 10));
  if (call == nullptr) return refusal(404, notFound, "This call is unknown, or no longer kept.");
  json::object details = detailsOf(*call);
  if (call->request.operation == Operation::profile) details["chart"] = chartOf(call->request.body, chart);
  return ok(details);
}

Answer answerOwn(State& state, const SeenRequest& request, const Chart& chart) {
  const std::string path = request.target.substr(0, request.target.find('?'));
  if (const auto* const change = std::ranges::find(changes, path, &Change::path); change != std::end(changes)) {
    if (request.method != "POST") return wrongMethod("POST");
    return judge(request.body.empty() ? "{}" : request.body, change->fields, [&](Body body) {
      if (change->needsAccount && state.service.find(get(body, "email")) == nullptr)
        return invalid({"There is no account for this e-mail address."});
      change->apply(state, body);
      return ok(changesSince(state, state.version));
    });
  }
  if (request.method != "GET") return wrongMethod("GET");
  if (path == "/") return html();
  if (path == "/sandbox/state") return ok(changesSince(state, 0));
  if (path == "/sandbox/events") return {.contentType = eventStream};
  if (path == "/sandbox/calls") return callsAt(state, "", chart);
  if (constexpr std::string_view prefix = "/sandbox/calls/"; path.starts_with(prefix) && path != prefix)
    return callsAt(state, path.substr(prefix.size()), chart);
  return refusal(404, notFound, "There is nothing here.");
}

// Refuses requests of other sites in the same browser: the browser sends their Origin with such a request, or their
// name as the Host.
bool isFromHere(const SeenRequest& request) {
  const std::string host = request.header("Host").value_or("");
  const std::string name = host.substr(0, host.find(':'));
  const auto origin = request.header("Origin");
  return (name == "127.0.0.1" || boost::iequals(name, "localhost")) && (!origin || *origin == "http://" + host);
}

}  // namespace

bool isForPage(std::string_view target) {
  return target.substr(0, target.find('?')) == "/" || target.starts_with("/sandbox/");
}

Answer answerPage(State& state, const SeenRequest& request, const Chart& chart) {
  Answer answer = isFromHere(request) ? answerOwn(state, request, chart)
                                      : refusal(403, notAuthorized, "This page is for this machine only.");
  answer.headers.insert(answer.headers.end(), {{"Cache-Control", "no-store"},
                                               {"X-Content-Type-Options", "nosniff"},
                                               {"Cross-Origin-Resource-Policy", "same-origin"}});
  return answer;
}

std::string eventSince(const State& state, std::size_t& version) {
  if (version == state.version) return {};
  std::string event = "data: " + json::serialize(changesSince(state, version)) + "\n\n";
  version = state.version;
  return event;
}

}  // namespace HalvernApi::Testing
