// That the sandbox refuses, by a reading of its own, what the library must not send.
#include <sys/resource.h>

#include "HalvernApi/Testing/Sandbox.hpp"
#include "Support.hpp"

namespace HalvernApi::Tests {
namespace {

using Testing::Operation;

// Sends a body and headers as they are.
struct Exactly final : ParameterEncoding {
  Exactly(const std::string& theBody, const std::string& theType, const std::string& accepted)
      : body(theBody), contentType(theType), accept(accepted) {}
  std::optional<NSError> encode(Alamofire::URLRequest& request, const std::optional<JsonObject>&) const override {
    request.body = body;
    request.headers.set("Accept", accept);
    if (!contentType.empty()) request.headers.set("Content-Type", contentType);
    return std::nullopt;
  }
  const std::string body, contentType, accept;
};

// Sends bytes over a connection of its own and returns all that the server sends until it closes the connection.
std::string exchange(int port, const std::string& sent) {
  boost::asio::ip::tcp::iostream stream("127.0.0.1", std::to_string(port));
  stream.expires_after(10s);
  stream << sent << std::flush;
  std::ostringstream received;
  received << stream.rdbuf();
  return received.str();
}

const std::string post = "POST /api/v1/account/login HTTP/1.1\r\nConnection: close\r\n";

TEST(Sandbox, RefusesBodiesOfAnyLength) {
  const Testing::Sandbox sandbox;
  const std::string chunk = "FFFFFF\r\n" + std::string(0xffffff, 'x') + "\r\n";
  const std::string bodies[] = {"Content-Length: 1000000000000\r\n\r\nx", "Transfer-Encoding: chunked\r\n\r\n" + chunk};
  for (const std::string& body : bodies)
    EXPECT_TRUE(exchange(sandbox.port(), post + body).starts_with("HTTP/1.1 413 ")) << body.substr(0, 40);
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
    static const Caller caller;  // destroyed after all that the first call makes
    (void)exchange(sandbox.port(), post + "\r\n");
    std::exit(0);
  });
}

TEST(Sandbox, WaitsForDescriptorsWithoutSpinning) {
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

TEST(Sandbox, RefusesWhatIsMoreLessOrOtherThanTheServiceExpects) {
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
        request<Unit>(*service.manager(), url, HTTPMethod::post, JsonObject(), Exactly(body, contentType, accept),
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
