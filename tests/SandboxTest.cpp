// Tests that the sandbox, which does not use the library's codecs, refuses what the library must not send.
#include "HalvernApi/Testing/Sandbox.hpp"
#include "Support.hpp"

namespace HalvernApi::Tests {
namespace {

using namespace testing;
using Testing::Operation;

// Sends bytes over a new connection. Returns all bytes that the server sends until it closes the connection.
std::string exchange(int port, const std::string& sent) {
  boost::asio::ip::tcp::iostream stream("127.0.0.1", std::to_string(port));
  stream.expires_after(10s);
  stream << sent << std::flush;
  std::ostringstream received;
  received << stream.rdbuf();
  return received.str();
}

// Sends a request over a new connection. Returns the whole answer.
std::string ask(const Testing::Sandbox& sandbox, const std::string& line, const std::string& body = "",
                const std::string& headers = "Host: localhost\r\n") {
  const std::string length = "Content-Length: " + std::to_string(body.size()) + "\r\n";
  return exchange(sandbox.port(), line + " HTTP/1.1\r\nConnection: close\r\n" + length + headers + "\r\n" + body);
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
    // This object is destroyed after all static objects that the first call creates.
    static const std::shared_ptr<void> caller(nullptr, [](void*) {
      if (!exchange(sandbox.port(), post + "\r\n").starts_with("HTTP/1.1 401 ")) std::_Exit(1);
    });
    (void)exchange(sandbox.port(), post + "\r\n");
    std::exit(0);
  });
}

TEST(SandboxPage, MakesCallsFailForScriptsInAnyLanguage) {
  Testing::Sandbox sandbox({.page = true});
  sandbox.addAccount("a@b.c", "password");
  HttpApiService service(sandbox.baseUrl(), {.timeoutIntervalForRequest = 300ms * slack}, sandbox.apiKey());
  const auto login = [&] { return outcomeOf(service.login("a@b.c", "password", "id", "name")); };
  const auto arm = [&](const std::string& what) {
    return ask(sandbox, "POST /sandbox/script", R"({"operation":"login")" + what + '}');
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
  EXPECT_TRUE(eventually([&] { return count(R"("abandoned")", ask(sandbox, "GET /sandbox/state")) == 2; }));
  EXPECT_THAT(arm(R"(,"calls":"all","status":500)"), AllOf(HasSubstr(R"("calls":"all")"), HasSubstr(R"("calls":[])")));
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
    EXPECT_FALSE(sandbox.waitUntilSeen(Operation::login, before + 1, 1ms));
    client << "POST /api/v1/account/login HTTP/1.1\r\n\r\n" << std::flush;
    EXPECT_TRUE(sandbox.waitUntilSeen(Operation::login, before + 1, 10s));
    client << post << "\r\n" << std::flush;
  };
  sendTwice(waiting, R"(,"never":true)");
  EXPECT_EQ(count(R"("waiting")", ask(sandbox, "GET /sandbox/state")), 1);
  sendTwice(late, R"(,"delay":200)");
  std::ostringstream received;
  received << late.rdbuf();
  EXPECT_EQ(count("HTTP/1.1 401 ", received.str()), 2);
  for (const char* what : {R"(,"calls":-1)", R"(,"contentType":"a\r\nb")", R"(,"status":100)", R"(,"more":1)", "]"})
    EXPECT_TRUE(arm(what).starts_with("HTTP/1.1 400 ")) << what;
}

TEST(SandboxPage, IsForItsOwnUserAlone) {
  const Testing::Sandbox sandbox({.page = true}), without;
  const auto status = [&](const std::string& line, const std::string& headers) {
    return ask(sandbox, line, "", headers).substr(9, 3);
  };
  const std::string own = "Host: 127.0.0.1:80\r\n";
  for (const char* target : {"GET /", "GET /sandbox/state", "GET /sandbox/calls", "POST /sandbox/reset"}) {
    EXPECT_EQ(status(target, own), "200");
    EXPECT_EQ(status(target, "Host: LocalHost\r\nOrigin: http://LocalHost\r\n"), "200");
    for (const std::string& headers :
         {std::string("Host: evil.example\r\n"), std::string("Host: 127.0.0.1.evil.example\r\n"), std::string(),
          own + "Origin: http://127.0.0.1:81\r\n", own + "Origin: null\r\n"})
      EXPECT_EQ(status(target, headers), "403") << target << ' ' << headers;
  }
  EXPECT_EQ(status("GET /sandbox/reset", own), "405");
  EXPECT_EQ(status("POST /", own), "405");
  EXPECT_TRUE(sandbox.seen().empty());
  EXPECT_EQ(sandbox.connections(), 0);
  EXPECT_TRUE(ask(without, "GET /").starts_with("HTTP/1.1 404 "));
  EXPECT_EQ(without.seen().size(), 1);
}

TEST(SandboxPage, KeepsWhatIsNewAndForgetsTheRest) {
  Testing::Sandbox sandbox({.page = true});
  boost::asio::ip::tcp::iostream events("127.0.0.1", std::to_string(sandbox.port()));
  events << "GET /sandbox/events HTTP/1.1\r\nHost: localhost\r\n\r\n" << std::flush;
  const auto readTo = [&](std::string_view end) {
    events.expires_after(10s);
    std::string read;
    for (char byte = 0; !read.ends_with(end) && events.get(byte);) read += byte;
    return read;
  };
  const std::string head = readTo("\r\n\r\n");
  for (const char* header : {"Cross-Origin-Resource-Policy: same-origin\r", "X-Content-Type-Options: nosniff\r"})
    EXPECT_THAT(head, HasSubstr(header));
  EXPECT_THAT(head, Not(HasSubstr("Content-Length")));
  EXPECT_THAT(readTo("\n\n"), ContainsRegex(R"(^data: .*"accounts":\[\])"));
  sandbox.addAccount("a@b.c", "password");
  EXPECT_THAT(readTo("\n\n"), ContainsRegex("^data: .*a@b.c"));

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
  EXPECT_THAT(ask(sandbox, "GET /sandbox/calls/1001"),
              AllOf(HasSubstr(R"("bodySize":100000)"), Not(HasSubstr("\xff"))));

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
  (void)ask(sandbox, "GET /" + repeat("é", 40'000));
  const std::string state = ask(sandbox, "GET /sandbox/state");
  for (const char* key : {"email", "Left", "Right", "body"})
    EXPECT_THAT(state, HasSubstr('"' + std::string(key) + '"' + shown));
  EXPECT_THAT(state, Not(HasSubstr(repeat("é", 512))));

  (void)exchange(sandbox.port(), repeat("GET /x HTTP/1.1\r\n\r\n", 99) + "GET /x HTTP/1.0\r\n\r\n");
  EXPECT_EQ(outcomeOf(service.profile({}, first.accessToken())), "success");
  EXPECT_THAT(ask(sandbox, "GET /sandbox/calls/105"), HasSubstr(R"("chart":"drawn")"));
  const std::string list = ask(sandbox, "GET /sandbox/calls");
  EXPECT_EQ(count(R"("number":)", list), 100);
  EXPECT_THAT(list, Not(HasSubstr("drawn")));
}

TEST(Sandbox, RefusesRequestsThatTheServiceDoesNotExpect) {
  Testing::Sandbox sandbox;
  sandbox.addAccount("a@b.c", "password");
  HttpApiService service(sandbox.baseUrl(), {}, sandbox.apiKey());
  const auto signIn = [&] { return service.login("a@b.c", "password", "id", "name").get().value(); };
  const AuthenticationResponse first = signIn();
  const std::string accept = "Accept: application/json\r\n", type = "Content-Type: application/json\r\n";
  struct Row {
    Operation operation;
    std::string body, refusal, headers = "Accept: application/json\r\nContent-Type: application/json\r\n";
  };
  constexpr auto update = Operation::update, profile = Operation::profile, resend = Operation::resendValidationEmail;
  const std::string day = R"({"sex":"Male","dateOfBirth":"1980-02-29T23:59:59"})", none;
  const auto aid = [](const std::string& ear, const std::string& values) {
    return R"({"aids":[{"serialNumber":"","tube":"","orientation":")" + ear + R"(","values":[)" + values + "]}]}";
  };
  const std::string badAid = "The field aids must be an array of audiograms.";
  const std::string noBody = "There must be no body.", badType = "The header Content-Type must be application/json.";
  std::vector<Row> rows = {{update, day, none},
                           {update, day.substr(0, day.size() - 1) + ",\"more\":1}", "There must be no field more."},
                           {update, R"({"dateOfBirth":"1980-02-29T23:59:59","sex":"male"})",
                            "The field sex must be Male, Female or NotKnown."},
                           {update, "[]", "The body is not a JSON object."},
                           {update, day, badType, accept},
                           {update, day, badType, accept + "Content-Type: text/json\r\n"},
                           {update, day, "The header Accept must be application/json.", type + "Accept: */*\r\n"},
                           {resend, "", none, accept},
                           {resend, "{}", noBody, accept},
                           {resend, "", noBody},
                           {profile, aid("Left", R"({"frequency":125,"volume":35.5})"), none},
                           {profile, aid("left", ""), badAid},
                           {profile, aid("Left", R"({"frequency":125})"), badAid},
                           {profile, aid("Left", R"({"frequency":125.5,"volume":35})"), badAid},
                           {profile, aid("Left", R"({"frequency":1,"volume":35,"more":1})"), badAid}};
  for (const char* date : {"1981-02-29T00:00:00", "1980-05-17T24:00:00", "1980-05-17T00:00:60", "1980-5-17T00:00:00",
                           "1980-05-17T00:00:00Z", "9999-01-01T00:00:00"})
    rows.push_back({update, std::string(R"({"sex":"Male","dateOfBirth":")") + date + "\"}",
                    "The field dateOfBirth must be a date such as 1980-05-17T00:00:00, and not in the future."});
  const std::string keys = "Api-Key: " + sandbox.apiKey() + "\r\nAccess-Token: " + first.accessToken() + "\r\n";
  for (const auto& [operation, body, refusal, headers] : rows) {
    const std::string answer = ask(sandbox, "POST " + std::string(path(operation)), body, keys + headers);
    EXPECT_THAT(answer, StartsWith(refusal.empty() ? "HTTP/1.1 200 " : "HTTP/1.1 400 ")) << body;
    EXPECT_THAT(answer, HasSubstr(refusal));
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
