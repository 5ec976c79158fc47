// How every failure becomes an Error: as values, and over the wire.
#include <gmock/gmock.h>

#include "ScriptedServer.hpp"
#include "TestSupport.hpp"

namespace HalvernApi::Tests {
namespace {

const NSError timedOut{std::string(NSURLErrorDomain), -1001, "timed out"};
const NSError networkDown{std::string(NSPOSIXErrorDomain), 100, "network is down"};
const NSError other{"Alamofire.AFError", 3, "not acceptable"};

// No status means that no answer came, a null that it had no body.
ErrorResponse failed(std::variant<NSError, JsonDecodeError> error, int status, const char* body) {
  const auto data = body != nullptr ? std::optional(bytes(body)) : std::nullopt;
  return {error, status != 0 ? std::optional(HTTPURLResponse{status}) : std::nullopt, data};
}

TEST(Error, IsMadeByTheFirstRuleThatApplies) {
  constexpr auto rejection = R"({"errorCode":5,"validationErrors":["first","second"],"message":"said"})";
  const Error unknown = Error::unknownNSError(other);
  const std::vector<std::tuple<std::variant<NSError, JsonDecodeError>, int, const char*, Error>> rows = {
      {JsonDecodeError::missingKey(), 401, rejection, Error::unknownJsonData()},
      {timedOut, 0, nullptr, Error::network(timedOut)},
      {timedOut, 401, rejection, Error::network(timedOut)},
      {networkDown, 400, rejection, Error::network(networkDown)},
      {other, 0, rejection, unknown},
      {other, 401, rejection, Error::notAuthorized()},
      {other, 400, rejection, Error::validationError("first")},
      {other, 400, R"({"errorCode":5,"validationErrors":["","second"]})", Error::validationError("")},
      {other, 400, R"({"errorCode":5,"validationErrors":[],"message":"said"})", Error::validationError("said")},
      {other, 400, R"({"errorCode":5.0,"message":"said"})", Error::validationError("said")},
      {other, 400, R"({"errorCode":5,"validationErrors":[],"message":null})", unknown},
      {other, 400, R"({"errorCode":5,"validationErrors":[1],"message":"said"})", unknown},
      {other, 400, R"({"message":"said"})", unknown},
      {other, 400, "Bad Request", unknown},
      {other, 400, nullptr, unknown},
      {other, 403, rejection, unknown},
      {other, 500, rejection, unknown},
      {other, 200, rejection, unknown},
  };
  for (const auto& [error, status, body, expected] : rows)
    EXPECT_EQ(Error(failed(error, status, body)), expected) << status << ' ' << (body != nullptr ? body : "no body");
}

TEST(Error, NumbersItsCasesInOrderAndKeepsSecretsOutOfItsDescription) {
  const std::vector<Error> errors = {Error::network(timedOut), Error::unknownNSError(other),
                                     Error::validationError("typed"), Error::unknownJsonData(), Error::notAuthorized()};
  for (std::size_t index = 0; index < errors.size(); ++index) EXPECT_EQ(errors[index].code(), static_cast<int>(index));
  EXPECT_EQ(errors[0].domain(), "HalvernApi.Error");
  EXPECT_THAT(errors[0].description(), ::testing::HasSubstr("timed out"));
  EXPECT_THAT(errors[2].description(), ::testing::Not(::testing::HasSubstr("typed")));
}

TEST(ErrorBody, IsDecodedOnlyFromAnObjectOrAnArrayAndOnlyForItsStatus) {
  const auto count = [](const JsonValue& json) -> Expected<std::optional<std::size_t>, JsonDecodeError> {
    return json.is_array() ? std::optional(json.get_array().size()) : std::nullopt;
  };
  EXPECT_EQ(decode<std::size_t>(bytes("[1, 2]"), count), 2);
  for (const char* text : {"{}", "1", "null", "", "[", "[\"\xff\"]"})
    EXPECT_EQ(decode<std::size_t>(bytes(text), count), std::nullopt) << text;

  const auto throwing = [](const JsonValue&) -> Expected<std::optional<int>, JsonDecodeError> { throw 1; };
  EXPECT_EQ(decode<int>(bytes("[]"), throwing), std::nullopt);
  const auto conflict = [](int status, const char* body) -> std::optional<std::int64_t> {
    const auto rejection =
        decode<ServerErrorResponse>(failed(other, status, body), 409, ServerErrorResponse::decodeJson);
    return rejection ? std::optional(rejection->errorCode()) : std::nullopt;
  };
  EXPECT_EQ(conflict(409, R"({"errorCode":5})"), 5);
  EXPECT_EQ(conflict(400, R"({"errorCode":5})"), std::nullopt);
  EXPECT_EQ(conflict(0, R"({"errorCode":5})"), std::nullopt);
  for (const char* body : {"{}", "5", static_cast<const char*>(nullptr)}) EXPECT_EQ(conflict(409, body), std::nullopt);
}

TEST(Answer, IsJudgedByItsStatusThenItsContentTypeThenItsBody) {
  const std::string valid = R"({"result":true})", rejection = R"({"errorCode":1,"validationErrors":["why"]})";
  const std::string invalid = "unknownNSError Alamofire.AFError 3", notJson = "unknownNSError Alamofire.AFError 4";
  // With the outcome of an operation whose result is a record, and of one whose result is empty.
  const std::vector<std::tuple<int, std::string, std::string, std::string, std::string>> rows = {
      {200, "application/json", valid, "success", "success"},
      {299, "Application/JSON ; charset=utf-8", "\xEF\xBB\xBF" + valid, "success", "success"},
      {200, "application/json", "{\"result\":1}", "unknownJsonData", "success"},
      {200, "application/json", "true", "unknownJsonData", "success"},
      {200, "application/json", valid + " x", notJson, notJson},
      {200, "application/json", "", notJson, notJson},
      {204, "", "", "unknownJsonData", "success"},
      {200, "text/html", valid, invalid, invalid},
      {200, "application/jsonp", valid, invalid, invalid},
      {200, "", valid, invalid, invalid},
      {304, "application/json", "", invalid, invalid},
      {400, "text/html", rejection, "validationError why", "validationError why"},
      {400, "application/json", "{}", invalid, invalid},
      {401, "text/html", "<p>", "notAuthorized", "notAuthorized"},
      {500, "application/json", rejection, invalid, invalid},
  };
  for (const auto& [status, contentType, body, ofRecord, ofUnit] : rows) {
    ScriptedServer server({http(status, contentType, body)});
    HttpApiService service(server.url(), {}, "key");
    EXPECT_EQ(outcomeOf(service.checkIfValidated("token")), ofRecord) << status << contentType << body;
    EXPECT_EQ(outcomeOf(service.resendValidationEmail("token")), ofUnit) << status << contentType << body;
  }
}

TEST(Failure, ThatNeverReachesAServerNamesItsReason) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"http://127.0.0.1:1", "network NSURLErrorDomain -1004"},  {"127.0.0.1:1", "network NSURLErrorDomain -1002"},
      {"ftp://127.0.0.1:1", "network NSURLErrorDomain -1002"},   {"", "network NSURLErrorDomain -1002"},
      {"http:///127.0.0.1:1", "network NSURLErrorDomain -1000"}, {"http://:1", "network NSURLErrorDomain -1000"},
      {"http://a b", "unknownNSError Alamofire.AFError 0"},      {"http://a\n", "unknownNSError Alamofire.AFError 0"}};
  for (const auto& [url, expected] : rows)
    EXPECT_EQ(outcomeOf(HttpApiService(url, {}, "key").resendValidationEmail("token")), expected) << url;
}

}  // namespace
}  // namespace HalvernApi::Tests
