// That the sandbox refuses, by a reading of its own, what the library must not send.
#include <gtest/gtest.h>

#include "HalvernApi/Testing/Sandbox.hpp"
#include "TestSupport.hpp"

namespace HalvernApi::Tests {
namespace {

using Testing::Operation;

// Sends a body and headers as they are.
struct Exactly final : ParameterEncoding {
  Exactly(std::string theBody, std::string theType = "application/json", std::string accepted = "application/json")
      : body(std::move(theBody)), contentType(std::move(theType)), accept(std::move(accepted)) {}
  std::optional<NSError> encode(Alamofire::URLRequest& request, const std::optional<JsonObject>&) const override {
    request.body = body;
    request.headers.set("Accept", accept);
    if (!contentType.empty()) request.headers.set("Content-Type", contentType);
    return std::nullopt;
  }
  const std::string body, contentType, accept;
};

TEST(Sandbox, RefusesWhatIsMoreLessOrOtherThanTheServiceExpects) {
  Testing::Sandbox sandbox;
  sandbox.addAccount("a@b.c", "password");
  HttpApiService service(sandbox.baseUrl(), {}, sandbox.apiKey());
  const auto signIn = [&] { return service.login("a@b.c", "password", "id", "name").get().value(); };
  const AuthenticationResponse first = signIn();
  const auto send = [&](Operation operation, const Exactly& encoding) {
    const std::string url = sandbox.baseUrl() + std::string(path(operation));
    return outcomeOf(request<Unit>(*service.manager(), url, HTTPMethod::post, JsonObject(), encoding, sandbox.apiKey(),
                                   first.accessToken(), [](const JsonValue&) { return Unit(); }));
  };
  const auto update = Operation::update, profile = Operation::profile, resend = Operation::resendValidationEmail;
  const std::string good = "success", wrong = "validationError ", born = R"({"sex":"Male","dateOfBirth":")";
  const std::string noBody = wrong + "There must be no body.", date = born + "1980-05-17T00:00:00\"}";
  const std::string badType = wrong + "The header Content-Type must be application/json.";
  for (const char* day : {"1981-02-29T00:00:00", "1980-05-17T24:00:00", "1980-05-17T00:00:60", "1980-5-17T00:00:00",
                          "1980-05-17T00:00:00Z", "9999-01-01T00:00:00"})
    EXPECT_EQ(send(update, born + day + "\"}"),
              wrong + "The field dateOfBirth must be a date such as 1980-05-17T00:00:00, and not in the future.");
  EXPECT_EQ(send(update, born + "1980-02-29T23:59:59\"}"), good);
  EXPECT_EQ(send(update, born + "1980-05-17T00:00:00\",\"more\":1}"), wrong + "There must be no field more.");
  EXPECT_EQ(send(update, {R"({"dateOfBirth":"1980-05-17T00:00:00","sex":"male"})"}),
            wrong + "The field sex must be Male, Female or NotKnown.");
  EXPECT_EQ(send(update, {"[]"}), wrong + "The body is not a JSON object.");
  for (const auto& [ear, point] : {std::pair("Left", R"({"frequency":125,"volume":35.5})"),
                                   {"left", ""},
                                   {"Left", R"({"frequency":125})"},
                                   {"Left", R"({"frequency":125.5,"volume":35})"},
                                   {"Left", R"({"frequency":125,"volume":35,"more":1})"}})
    EXPECT_EQ(send(profile, R"({"aids":[{"orientation":")" + std::string(ear) +
                                R"(","serialNumber":"","tube":"","values":[)" + point + "]}]}"),
              std::string(point).ends_with("35.5}") ? good : wrong + "The field aids must be an array of audiograms.");
  EXPECT_EQ(send(update, {date, ""}), badType);
  EXPECT_EQ(send(update, {date, "text/json"}), badType);
  EXPECT_EQ(send(update, {date, "application/json", "*/*"}), wrong + "The header Accept must be application/json.");
  EXPECT_EQ(send(resend, {"", ""}), good);
  EXPECT_EQ(send(resend, {"{}", ""}), noBody);
  EXPECT_EQ(send(resend, {"", "application/json"}), noBody);

  const std::string notItsOwn = wrong + "The refresh token is not valid.";
  EXPECT_EQ(outcomeOf(service.relogin(first.refreshToken(), "another id")), notItsOwn);
  EXPECT_EQ(outcomeOf(service.relogin(first.refreshToken(), "id")), good);
  EXPECT_EQ(outcomeOf(service.relogin(first.refreshToken(), "id")), notItsOwn);
  for (int count = 2; count < 32; ++count) signIn();
  EXPECT_EQ(outcomeOf(service.checkIfValidated(first.accessToken())), good);
  signIn();
  EXPECT_EQ(outcomeOf(service.checkIfValidated(first.accessToken())), "notAuthorized");
}

}  // namespace
}  // namespace HalvernApi::Tests
