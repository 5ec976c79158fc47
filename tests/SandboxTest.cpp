// Tests that the sandbox, which does not use the library's codecs, refuses what the library must not send.
#include <sys/resource.h>

#include "HalvernApi/Testing/Sandbox.hpp"
#include "Support.hpp"

namespace HalvernApi::Tests {
namespace {

using Testing::Operation;

// Sends a body and headers unchanged.
struct FixedBody final : ParameterEncoding {
  FixedBody(const std::string& theBody, const std::string& theType, const std::string& accepted)
      : body(theBody), contentType(theType), accept(accepted) {}
  std::optional<NSError> encode(Alamofire::URLRequest& request, const std::optional<JsonObject>&) const override {
    request.body = body;
    request.headers.set("Accept", accept);
    if (!contentType.empty()) request.headers.set("Content-Type", contentType);
    return std::nullopt;
  }
  const std::string body, contentType, accept;
};

// Sends bytes over a new connection. Returns all bytes that the server sends until it closes the connection.
std::string exchange(int port, const std::string& sent) {
  boost::asio::ip::tcp::iostream stream("127.0.0.1", std::to_string(port));
  stream.expires_after(10s);
  stream << sent << std::flush;
  std::ostringstream received;
  received << stream.rdbuf();
  return received.str();
}

std::string get(const Testing::Sandbox& sandbox, const std::string& target) {
  return exchange(sandbox.port(), "GET " + target + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
}

std::size_t count(const std::string& piece, const std::string& text) {
  std::size_t found = 0;
  for (std::size_t at = 0; (at = text.find(piece, at)) != std::string::npos; at += piece.size()) ++found;
  return found;
}

const std::string post = "POST /api/v1/account/login HTTP/1.1\r\nConnection: close\r\n";

TEST(Sandbox, SurvivesBodiesAndHeadersOfAnyLength) {
  const Testing::Sandbox sandbox;
  const std::string chunk = "FFFFFF\r\n" + std::string(0xffffff, 'x') + "\r\n";
  const std::string bodies[] = {"Content-Length: 1000000000000\r\n\r\nx", "Transfer-Encoding: chunked\r\n\r\n" + chunk};
  for (const std::string& body : bodies)
    EXPECT_TRUE(exchange(sandbox.port(), post + body).starts_with("HTTP/1.1 413 ")) << body.substr(0, 40);
  EXPECT_EQ(exchange(sandbox.port(), post + "X: " + std::string(100'000, 'x') + "\r\n\r\n"), "");
  EXPECT_TRUE(exchange(sandbox.port(), post + "\r\n").starts_with("HTTP/1.1 401 "));
}

TEST(Sandbox, AnswersAtExitUntilItIsDestroyed) {
  expectCleanExit([] {
    static const Testing::Sandbox sandbox;
    struct Caller {
      ~Caller() {
        if (!exchange(sandbox.port(), post + "\r\n").starts_with("HTTP/1.1 401 ")) std::_Exit(1);
      }
    };
    static const Caller caller;  // destroyed after all static objects that the first call creates
    (void)exchange(sandbox.port(), post + "\r\n");
    std::exit(0);
  });
}

TEST(Sandbox, WaitsForDescriptorsWithoutSpinning) {
  if (slack > 1) GTEST_SKIP() << "a sanitizer needs descriptors to look at memory";
  const Testing::Sandbox sandbox;
  boost::asio::io_context context;
  boost::asio::ip::tcp::socket client(context, boost::asio::ip::tcp::v4());
  rlimit usual{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
  const rlimit none{0, usual.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  client.connect({boost::asio::ip::address_v4::loopback(), static_cast<in_port_t>(sandbox.port())});
  const std::clock_t before = std::clock();
  EXPECT_FALSE(sandbox.waitUntilSeen(Operation::login, 1, 500ms));
  EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 20);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
  boost::asio::write(client, boost::asio::buffer(post + "\r\n"));
  EXPECT_TRUE(sandbox.waitUntilSeen(Operation::login, 1, 10s));
}

TEST(SandboxPage, MakesCallsFailForScriptsInAnyLanguage) {
  Testing::Sandbox sandbox({.page = true});
  sandbox.addAccount("a@b.c", "password");
  HttpApiService service(sandbox.baseUrl(), {.timeoutIntervalForRequest = 300ms * slack}, sandbox.apiKey());
  const auto login = [&] { return outcomeOf(service.login("a@b.c", "password", "id", "name")); };
  const auto arm = [&](const std::string& what) {
    const std::string body = R"({"operation":"login")" + what + '}';
    return exchange(sandbox.port(),
                    "POST /sandbox/script HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nContent-Length: " +
                        std::to_string(body.size()) + "\r\n\r\n" + body);
  };
  const std::pair<std::string, std::string> rows[] = {
      {R"("status":503)", invalid},
      {R"("status":401)", "notAuthorized"},
      {R"("status":400,"message":"Later.")", "validationError Later."},
      {R"("validationErrors":["Too young.","Too old."])", "validationError Too young."},
      {R"("body":"<html>")", notJson},
      {R"("body":"{}","contentType":"text/html")", invalid},
      {R"("never":true)", timedOut},
      {R"("delay":86400000)", timedOut},
      {R"("drop":true,"delay":10)", lost},
      {R"("delay":10)", "success"},
      {R"("calls":0)", "success"},
  };
  for (const auto& [what, outcome] : rows) {
    sandbox.script(Operation::login, {.answer = Testing::Answer{.status = 500}, .calls = 7});
    EXPECT_TRUE(arm("," + what).starts_with("HTTP/1.1 200 ")) << what;
    EXPECT_EQ(login(), outcome) << what;
    EXPECT_EQ(login(), "success") << "after " << what;
  }
  EXPECT_TRUE(eventually([&] { return count(R"("abandoned")", get(sandbox, "/sandbox/state")) == 2; }));
  const std::string armed = arm(R"(,"calls":"all","status":500)");
  EXPECT_NE(armed.find(R"("calls":"all")"), std::string::npos);
  EXPECT_NE(armed.find(R"("calls":[])"), std::string::npos);
  for (int count = 0; count < 3; ++count) EXPECT_EQ(login(), invalid);
  for (const char* what : {R"(,"status":204,"body":"x")", R"(,"status":304,"message":"x")"}) {
    EXPECT_TRUE(arm(what).starts_with("HTTP/1.1 200 ")) << what;
    EXPECT_TRUE(exchange(sandbox.port(), post + "\r\n").ends_with("\r\n\r\n")) << what;
  }
  boost::asio::ip::tcp::iostream waiting, late;
  const auto sendTwice = [&](auto& client, const std::string& what) {
    EXPECT_TRUE(arm(what).starts_with("HTTP/1.1 200 ")) << what;
    client.expires_after(10s);
    client.connect("127.0.0.1", std::to_string(sandbox.port()));
    const std::size_t before = sandbox.seen(Operation::login).size();
    client << "POST /api/v1/account/login HTTP/1.1\r\n\r\n" << std::flush;
    EXPECT_TRUE(sandbox.waitUntilSeen(Operation::login, before + 1, 10s));
    client << post << "\r\n" << std::flush;
  };
  sendTwice(waiting, R"(,"never":true)");
  EXPECT_EQ(count(R"("waiting")", get(sandbox, "/sandbox/state")), 1);
  sendTwice(late, R"(,"delay":200)");
  std::ostringstream received;
  received << late.rdbuf();
  EXPECT_EQ(count("HTTP/1.1 401 ", received.str()), 2);
  for (const char* what : {R"(,"calls":-1)", R"(,"contentType":"a\r\nb")", R"(,"status":100)", R"(,"more":1)", "]"})
    EXPECT_TRUE(arm(what).starts_with("HTTP/1.1 400 ")) << what;
}

TEST(SandboxPage, IsForItsOwnUserAlone) {
  const Testing::Sandbox sandbox({.page = true}), without;
  const auto ask = [&](const std::string& line, const std::string& headers) {
    const std::string answer = exchange(sandbox.port(), line + " HTTP/1.1\r\nConnection: close\r\n" + headers + "\r\n");
    return answer.substr(9, 3);
  };
  const std::string own = "Host: 127.0.0.1:80\r\n";
  for (const char* target : {"GET /", "GET /sandbox/state", "GET /sandbox/calls", "POST /sandbox/reset"}) {
    EXPECT_EQ(ask(target, own), "200");
    EXPECT_EQ(ask(target, "Host: LocalHost\r\nOrigin: http://LocalHost\r\n"), "200");
    for (const std::string& headers :
         {std::string("Host: evil.example\r\n"), std::string("Host: 127.0.0.1.evil.example\r\n"), std::string(),
          own + "Origin: http://127.0.0.1:81\r\n", own + "Origin: null\r\n"})
      EXPECT_EQ(ask(target, headers), "403") << target << ' ' << headers;
  }
  EXPECT_EQ(ask("GET /sandbox/reset", own), "405");
  EXPECT_EQ(ask("POST /", own), "405");
  EXPECT_TRUE(sandbox.seen().empty());
  EXPECT_EQ(sandbox.connections(), 0);
  EXPECT_TRUE(
      exchange(without.port(), "GET / HTTP/1.1\r\nConnection: close\r\n" + own + "\r\n").starts_with("HTTP/1.1 404 "));
  EXPECT_EQ(without.seen().size(), 1);
}

TEST(SandboxPage, KeepsWhatIsNewAndForgetsTheRest) {
  Testing::Sandbox sandbox({.page = true});
  boost::asio::ip::tcp::iostream events("127.0.0.1", std::to_string(sandbox.port()));
  events << "GET /sandbox/events HTTP/1.1\r\nHost: localhost\r\n\r\n" << std::flush;
  events.expires_after(10s);
  std::string head;
  for (std::string line; std::getline(events, line) && line != "\r";) head += line;
  for (const char* header : {"Cross-Origin-Resource-Policy: same-origin\r", "X-Content-Type-Options: nosniff\r"})
    EXPECT_NE(head.find(header), std::string::npos) << header;
  EXPECT_EQ(head.find("Content-Length"), std::string::npos);
  const auto nextEvent = [&] {
    events.expires_after(10s);
    std::string line;
    while (std::getline(events, line) && !line.starts_with("data: ")) continue;
    return line;
  };
  EXPECT_NE(nextEvent().find(R"("accounts":[])"), std::string::npos);
  sandbox.addAccount("a@b.c", "password");
  EXPECT_NE(nextEvent().find("a@b.c"), std::string::npos);

  std::string requests = repeat("GET /x HTTP/1.1\r\n\r\n", 1000);
  requests += std::string(100'000, 'Y') + " /y HTTP/1.1\r\n" + repeat("X: " + std::string(40'000, 'x') + "\r\n", 2) +
              repeat("Y: y\r\n", 200) + "Content-Length: 100000\r\nConnection: close\r\n\r\n" +
              std::string(100'000, '\xff');
  (void)exchange(sandbox.port(), requests);
  const auto seen = sandbox.seen();
  ASSERT_EQ(seen.size(), 1000);
  EXPECT_EQ(seen.back().target, "/y");
  EXPECT_EQ(seen.back().method.size(), 65'536);
  EXPECT_EQ(seen.back().body.size(), 65'536);
  EXPECT_EQ(seen.back().headers.size(), 100);
  EXPECT_EQ(seen.back().headers[1].second.size(), 65'536 - 40'002);
  EXPECT_EQ(sandbox.connections(), 1);
  const std::string details = get(sandbox, "/sandbox/calls/1001");
  EXPECT_NE(details.find(R"("bodySize":100000)"), std::string::npos);
  EXPECT_EQ(details.find('\xff'), std::string::npos);

  sandbox.script(Operation::login, {.answer = Testing::Answer{.status = 500}});
  sandbox.resetAll();
  EXPECT_TRUE(sandbox.seen().empty());
  HttpApiService service(sandbox.baseUrl(), {}, sandbox.apiKey());
  EXPECT_EQ(outcomeOf(service.login("a@b.c", "password", "id", "name")),
            "validationError The e-mail address or the password is wrong.");
  EXPECT_EQ(outcomeOf(service.authenticate("sandbox-facebook-token", "id", "name")), "success");
}

TEST(SandboxPage, CutsLongTextsAndLists) {
  Testing::Sandbox sandbox({.page = true, .chart = [](const auto&) { return "drawn"; }});
  const std::string text = 'x' + repeat("é", 40'000), shown = ":\"x" + repeat("é", 511) + '"';  // 1,023 bytes
  HttpApiService service(sandbox.baseUrl(), {}, sandbox.apiKey());
  sandbox.addAccount(text, "password");
  const AuthenticationResponse first = service.login(text, "password", "id", "name").get().value();
  for (const auto ear : {DeviceOrientation::left, DeviceOrientation::right})
    EXPECT_EQ(outcomeOf(service.registerDevice("id", text, {}, "h", "f", "t", ear, first.accessToken())), "success");
  sandbox.script(Operation::login, {.answer = Testing::Answer{.body = text, .contentType = text}});
  (void)exchange(sandbox.port(), "GET /" + repeat("é", 40'000) + " HTTP/1.1\r\nConnection: close\r\n\r\n");
  const std::string state = get(sandbox, "/sandbox/state");
  for (const char* key : {"email", "Left", "Right", "body"})
    EXPECT_NE(state.find('"' + std::string(key) + '"' + shown), std::string::npos) << key;
  EXPECT_EQ(state.find(repeat("é", 512)), std::string::npos);

  (void)exchange(sandbox.port(), repeat("GET /x HTTP/1.1\r\n\r\n", 99) + "GET /x HTTP/1.0\r\n\r\n");
  EXPECT_EQ(outcomeOf(service.profile({}, first.accessToken())), "success");
  EXPECT_NE(get(sandbox, "/sandbox/calls/105").find(R"("chart":"drawn")"), std::string::npos);
  const std::string list = get(sandbox, "/sandbox/calls");
  EXPECT_EQ(count(R"("number":)", list), 100);
  EXPECT_EQ(list.find("drawn"), std::string::npos);
}

TEST(Sandbox, RefusesRequestsThatTheServiceDoesNotExpect) {
  Testing::Sandbox sandbox;
  sandbox.addAccount("a@b.c", "password");
  HttpApiService service(sandbox.baseUrl(), {}, sandbox.apiKey());
  const auto signIn = [&] { return service.login("a@b.c", "password", "id", "name").get().value(); };
  const AuthenticationResponse first = signIn();
  struct Row {
    Operation operation;
    std::string body, refusal, contentType = "application/json", accept = "application/json";
  };
  constexpr auto update = Operation::update, profile = Operation::profile, resend = Operation::resendValidationEmail;
  const std::string day = R"({"sex":"Male","dateOfBirth":"1980-02-29T23:59:59"})", none;
  const std::string noBody = "There must be no body.", badType = "The header Content-Type must be application/json.";
  std::vector<Row> rows = {{update, day, none},
                           {update, day.substr(0, day.size() - 1) + ",\"more\":1}", "There must be no field more."},
                           {update, R"({"dateOfBirth":"1980-02-29T23:59:59","sex":"male"})",
                            "The field sex must be Male, Female or NotKnown."},
                           {update, "[]", "The body is not a JSON object."},
                           {update, day, badType, ""},
                           {update, day, badType, "text/json"},
                           {update, day, "The header Accept must be application/json.", "application/json", "*/*"},
                           {resend, "", none, ""},
                           {resend, "{}", noBody, ""},
                           {resend, "", noBody}};
  for (const char* date : {"1981-02-29T00:00:00", "1980-05-17T24:00:00", "1980-05-17T00:00:60", "1980-5-17T00:00:00",
                           "1980-05-17T00:00:00Z", "9999-01-01T00:00:00"})
    rows.push_back({update, std::string(R"({"sex":"Male","dateOfBirth":")") + date + "\"}",
                    "The field dateOfBirth must be a date such as 1980-05-17T00:00:00, and not in the future."});
  for (const char* aid :
       {R"("Left"@{"frequency":125,"volume":35.5})", R"("left"@)", R"("Left"@{"frequency":125})",
        R"("Left"@{"frequency":125.5,"volume":35})", R"("Left"@{"frequency":1,"volume":35,"more":1})"}) {
    std::string body = std::string(R"({"aids":[{"orientation":)") + aid + "]}]}";
    body.replace(body.find('@'), 1, R"(,"serialNumber":"","tube":"","values":[)");
    rows.push_back(
        {profile, body, body.find("35.5") < body.size() ? none : "The field aids must be an array of audiograms."});
  }
  for (const auto& [operation, body, refusal, contentType, accept] : rows) {
    const std::string url = sandbox.baseUrl() + std::string(path(operation));
    const auto sent =
        request<Unit>(*service.manager(), url, HTTPMethod::post, JsonObject(), FixedBody(body, contentType, accept),
                      sandbox.apiKey(), first.accessToken(), [](const JsonValue&) { return Unit(); });
    EXPECT_EQ(outcomeOf(sent), refusal.empty() ? "success" : "validationError " + refusal) << body;
  }

  const std::string notItsOwn = "validationError The refresh token is not valid.";
  EXPECT_EQ(outcomeOf(service.relogin(first.refreshToken(), "another id")), notItsOwn);
  EXPECT_EQ(outcomeOf(service.relogin(first.refreshToken(), "id")), "success");
  EXPECT_EQ(outcomeOf(service.relogin(first.refreshToken(), "id")), notItsOwn);
  for (int count = 2; count < 32; ++count) signIn();
  EXPECT_EQ(outcomeOf(service.checkIfValidated(first.accessToken())), "success");
  signIn();
  EXPECT_EQ(outcomeOf(service.checkIfValidated(first.accessToken())), "notAuthorized");
}

}  // namespace
}  // namespace HalvernApi::Tests
