// Tests reading and writing JSON: primitives, records, enumerations, dates, and the messages for invalid data.
#include <openssl/evp.h>

#include <bit>
#include <boost/json/monotonic_resource.hpp>
#include <boost/json/parse.hpp>
#include <cmath>
#include <ctime>
#include <iomanip>
#include <random>
#include <sstream>

#include "HalvernApi/Platform/Statham/JsonText.hpp"
#include "Support.hpp"

namespace HalvernApi::Tests {
namespace {

using Failure = Unexpected<JsonDecodeError>;

JsonValue parsed(std::string_view text) { return boost::json::parse({text.data(), text.size()}); }

TEST(PrimitiveDecoders, AcceptOnlyTheirOwnKind) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> rows = {
      {"Bool ", {"true", "false"}},
      {"String ", {"\"\"", "\"1\""}},
      {"Int Double ", {"1", "-0", "-1.0", "1e3", "9223372036854775807", "-9223372036854775808"}},
      {"Double ", {"1.5", "9223372036854775808", "-9223372036854775809", "9223372036854775808.0", "1e300"}},
      {"", {"null", "[1]", "{}"}}};
  const auto takers = [](const JsonValue& json) {
    return std::string(JsonCodec<bool>::decodeJson(json) ? "Bool " : "") +
           (JsonCodec<std::string>::decodeJson(json) ? "String " : "") +
           (JsonCodec<std::int64_t>::decodeJson(json) ? "Int " : "") +
           (JsonCodec<double>::decodeJson(json) ? "Double " : "");
  };
  for (const auto& [expected, texts] : rows)
    for (const std::string& text : texts) EXPECT_EQ(takers(parsed(text)), expected) << text;
  EXPECT_EQ(takers(HUGE_VAL), "");
  EXPECT_EQ(JsonCodec<std::int64_t>::decodeJson(std::uint64_t{1000}), 1000);
}

// Expects that the decoded text is encoded as the same text.
template <class Record>
Record expectText(std::string_view text) {
  const auto record = Record::decodeJson(*Statham::parseJson(text)).value();
  EXPECT_EQ(Statham::writeJson(record.encodeJson()), text);
  return record;
}

TEST(Records, AreReadAndWrittenWithEveryKeyInOrder) {
  const auto signIn = expectText<AuthenticationResponse>(
      R"({"isSuccessful":true,"isEmailConfirmed":false,"accessToken":"a","refreshToken":"r",)"
      R"("dateOfBirth":"1980-05-17T08:30:00","sex":"Female","email":"e"})");
  const auto birth = decodeDate("1980-05-17T08:30:00").value();
  EXPECT_EQ(signIn, AuthenticationResponse(true, false, "a", "r", birth, Sex::female, "e"));
  expectText<AuthenticationResponse>(R"({"isSuccessful":false,"isEmailConfirmed":true,"accessToken":"",)"
                                     R"("refreshToken":"","dateOfBirth":null,"sex":null,"email":""})");
  expectText<ForgotPasswordResponse>(R"({"result":false})");
  expectText<ValidatedEmailResponse>(R"({"result":true})");
  expectText<ConfigurationResponse>(R"({"leftConfiguration":"AQID","rightConfiguration":null})");
  auto rejection = expectText<ServerErrorResponse>(R"({"errorCode":0,"message":null,"validationErrors":null})");
  rejection.setErrorCode(-7), rejection.setMessage("m"), rejection.setValidationErrors({{"x"}});
  EXPECT_EQ(rejection, expectText<ServerErrorResponse>(R"({"errorCode":-7,"message":"m","validationErrors":["x"]})"));
  expectText<Audiogram>(R"({"orientation":"Left","serialNumber":"s","tube":"t","values":[{"frequency":1000,)"
                        R"("volume":35.5},{"frequency":250,"volume":-10},{"frequency":250,"volume":0.1}]})");
}

template <class Record>
std::string faultsOf(std::string_view text) {
  const auto decoded = Record::decodeJson(parsed(text));
  return decoded ? "none" : decoded.error().description();
}

TEST(DecodingFaults, AreAllReportedAtOnceByTheirPath) {
  EXPECT_EQ(faultsOf<ForgotPasswordResponse>("{}"), "ForgotPasswordResponse.result: missing");
  EXPECT_EQ(faultsOf<ValidatedEmailResponse>("{}"), "ValidatedEmailResponse.result: missing");
  EXPECT_EQ(faultsOf<AuthenticationResponse>(
                R"({"email":"e","sex":"unknown","isSuccessful":1,"x":[],"dateOfBirth":"1980-05-17","email":"f",)"
                R"("refreshToken":"r","isEmailConfirmed":0,"isEmailConfirmed":true,"accessToken":null})"),
            "AuthenticationResponse.isSuccessful: expected Bool, found number; "
            "AuthenticationResponse.accessToken: expected String, found null; "
            "AuthenticationResponse.dateOfBirth: expected ISO 8601 formatted NSDate, found string; "
            "AuthenticationResponse.sex: not one of the texts of Sex");
  EXPECT_EQ(faultsOf<Audiogram>(R"({"orientation":"left","serialNumber":"s","values":[{"frequency":1,"volume":2},7,)"
                                R"({"volume":2},{"frequency":1.5,"volume":"loud"}]})"),
            "Audiogram.orientation: not one of the texts of DeviceOrientation; Audiogram.tube: missing; "
            "Audiogram.values[1]: expected Object, found number; Audiogram.values[2].frequency: missing; "
            "Audiogram.values[3].frequency: expected Int, found number with a fraction; "
            "Audiogram.values[3].volume: expected Double, found string");
  EXPECT_EQ(faultsOf<ServerErrorResponse>(R"({"errorCode":1,"validationErrors":["x",null]})"),
            "ServerErrorResponse.validationErrors[1]: expected String, found null");
  EXPECT_EQ(faultsOf<ConfigurationResponse>(R"({"more":0})"), "none");
  EXPECT_EQ(faultsOf<ValidatedEmailResponse>("true"), "expected Object, found boolean");
  const auto many = JsonCodec<std::vector<bool>>::decodeJson(boost::json::array(2000));
  EXPECT_EQ(many.error().elementErrors().size(), 1000);  // not more than the limit
  const auto nested = Audiogram::decodeJson(parsed(R"({"orientation":"left","values":[{"frequency":1}]})"));
  EXPECT_EQ(*nested.error().at("orientation"), JsonDecodeError::wrongEnumRawValue("left", "DeviceOrientation"));
  EXPECT_EQ(nested.error().at("values")->elementErrors().at(0).error,
            JsonDecodeError::structErrors("FrequencyVolumePair", {{"volume", JsonDecodeError::missingKey()}}));
  boost::json::monotonic_resource memory;  // is destroyed before the fault
  const auto fault = Sex::decodeJson(boost::json::parse(R"(["a text that takes memory"])", &memory));
  EXPECT_NE(fault.error().value()->storage().get(), &memory);
}

TEST(Enumerations, AreSentAsTheirRawTexts) {
  for (int ordinal = 0; const char* const text : {"Male", "Female", "NotKnown"}) {
    const Sex sex = static_cast<Sex::Case>(ordinal);
    EXPECT_EQ(Sex::fromRawValue(text), sex);
    EXPECT_EQ(Sex::decodeJson(text), sex);
    EXPECT_EQ(sex.encodeJson(), text);
    EXPECT_EQ(std::hash<Sex>()(sex), ordinal++);
  }
  for (const std::string text : {"male", "unknown", "NotKnown ", " NotKnown", "", "LEFT", "Left\n"}) {
    EXPECT_EQ(Sex::fromRawValue(text), std::nullopt);
    EXPECT_EQ(Sex::decodeJson(JsonValue(text)), Failure(JsonDecodeError::wrongEnumRawValue(text, "Sex"))) << text;
  }
  EXPECT_EQ(Sex::decodeJson(0), Failure(JsonDecodeError::wrongType(0, "String")));
}

// Returns true if a text is refused because its values would take too much memory or time.
bool isTooLarge(const std::string& text, std::size_t maxBytes = SIZE_MAX) {
  const auto json = Statham::parseJson(text, maxBytes);
  return !json && json.error().isTooLarge;
}

TEST(JsonText, IsRefusedIfItsValuesWouldTakeTooMuchMemory) {
  const auto listOf = [](const std::string& element) { return '[' + repeat(element + ',', 999) + element + ']'; };
  const std::string longText(20'000, 'x');
  const std::vector<std::pair<std::string, std::size_t>> rows = {
      // each with a lower limit for the memory of its values
      {listOf("0"), 24'000},
      {listOf("[0,1,2,3,4,5,6,7,8,9]"), 264'000},
      {listOf("[[[[0]]]]"), 200'000},
      {listOf(R"({"a":0,"b":1,"c":2,"d":3,"e":4,"f":5,"g":6,"h":7,"i":8,"j":9})"), 600'000},
      {'"' + longText + '"', 20'000},
      {"{\"" + longText + "\":0}", 20'000},
      {"\"\\n" + longText + '"', 40'000}};
  for (const auto& [text, minBytes] : rows) {
    EXPECT_TRUE(isTooLarge(text, minBytes)) << text.substr(0, 20);
    EXPECT_TRUE(Statham::parseJson(text, 5 * minBytes) == parsed(text)) << text.substr(0, 20);
  }
  EXPECT_FALSE(isTooLarge("[0", 1000));
}

TEST(JsonText, IsRefusedIfComparingItsKeysMightTakeTooLong) {
  const auto object = [](int members, const std::string& keyEnd = "") {
    std::string text = "{";
    for (int number = 0; number < members; ++number) text += '"' + std::to_string(10'000 + number) + keyEnd + "\":0,";
    text.back() = '}';
    return text;
  };
  const std::string medium = object(9'000) + ',', keyEnd(3'000, 'x');
  for (const std::string& text : {object(18'500), object(2'000, keyEnd), '[' + repeat(medium, 4) + "0]"})
    EXPECT_TRUE(Statham::parseJson(text)) << text.size();
  for (const std::string& text : {object(19'000), object(2'100, keyEnd), '[' + repeat(medium, 5) + "0]"})
    EXPECT_TRUE(isTooLarge(text)) << text.size();
}

TEST(ConfigurationData, AreStrictBase64OfTheirOwnText) {
  const auto left = [](const std::string& text) { return ConfigurationResponse(text, {}).leftData(); };
  for (std::string data, text(200, '\0'); data.size() < 100; data += static_cast<char>(157 * data.size())) {
    const auto* const plain = reinterpret_cast<const unsigned char*>(data.data());
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), plain, static_cast<int>(data.size()));
    EXPECT_EQ(left(text.c_str()), dataOf(data)) << text;
    EXPECT_EQ(ConfigurationResponse({}, text.c_str()).rightData(), dataOf(data)) << text;
  }
  EXPECT_EQ(left("AR=="), dataOf("\1"));  // the unused bits are not 0
  EXPECT_EQ(ConfigurationResponse("AQID", {}).rightData(), std::nullopt);
  for (const char* text : {"AQI", "AQ", "A===", "====", "AQ=I", "AQ==AQID", "AQ ID", "AQID\n"})
    EXPECT_EQ(left(text), std::nullopt) << text;
  for (int place = 0; place < 8; ++place)
    for (int letter = 0; letter < 256; ++letter) {
      std::string text = "AQIDAQID";
      text[static_cast<std::size_t>(place)] = static_cast<char>(letter);
      const bool known = letter < 128 && (std::isalnum(letter) != 0 || letter == '+' || letter == '/');
      EXPECT_EQ(left(text).has_value(), known || (letter == '=' && place == 7)) << text;
    }
}

std::string bodyOf(const JsonValue& value) {
  URLRequest request;
  const auto error = JSONEncoding::default_().encode(request, JsonObject{{"v", value}});
  return error ? error->domain : request.body.value_or("none");
}

TEST(JsonBodies, HoldPlainDecimalsAndNothingThatJsonCannotExpress) {
  EXPECT_EQ(bodyOf({35.5, 35.0, 1e21, UINT64_MAX}), R"({"v":[35.5,35,1000000000000000000000,18446744073709551615]})");
  EXPECT_EQ(bodyOf({INT64_MAX, INT64_MIN}), R"({"v":[9223372036854775807,-9223372036854775808]})");
  EXPECT_EQ(bodyOf({"a\"\\\n\x01/ä😀", nullptr, true}), R"({"v":["a\"\\\n\u0001/ä😀",null,true]})");
  std::vector<double> doubles = {-0.0, 5e-324, 1.7e308, 1.0 / 3, 1e19, -1e300};
  for (std::mt19937_64 random; doubles.size() < 2000;) doubles.push_back(std::bit_cast<double>(random()));
  for (const double value : doubles) {
    const std::string text = bodyOf(value);
    EXPECT_EQ(text.find_first_of("eE") == std::string::npos, std::isfinite(value)) << text;
    if (!std::isfinite(value)) continue;  // JSON cannot contain it
    const auto read = JsonCodec<double>::decodeJson(Statham::parseJson(text)->at("v"));
    EXPECT_EQ(std::bit_cast<std::uint64_t>(read.value()), std::bit_cast<std::uint64_t>(value)) << text;
  }
  JsonValue deep;
  for (int depth = 0; depth < 256; ++depth) deep = boost::json::array(1, JsonObject{{"v", deep}});
  EXPECT_EQ(bodyOf(deep).size(), 6 + 256 * 8 + 4);  // {"v":[{"v":...null...}]}
  EXPECT_TRUE(Statham::parseJson(repeat("[", 512) + repeat("]", 512)));
  EXPECT_FALSE(Statham::parseJson(repeat("[", 513) + repeat("]", 513)));
  deep = boost::json::array(1, deep);
  for (const JsonValue& value :
       {JsonValue(std::nan("")), JsonValue(HUGE_VAL), JsonValue("\xed\xa0\x80"), deep, JsonValue("\xff 12345678"),
        JsonValue("12345678\xff"), JsonValue("1234567\xff 12345678")})
    EXPECT_EQ(bodyOf(value), "Alamofire.AFError");
}

class Dates : public ::testing::Test {
 protected:
  ~Dates() override { ::unsetenv("TZ"), ::tzset(); }
};

TEST_F(Dates, AreReadAndWrittenInTheTimeZoneOfTheMoment) {
  const std::vector<std::tuple<const char*, const char*, std::int64_t, const char*>> rows = {
      {"No/Such_Zone", "1980-05-17T08:30:00", 327400200, "1980-05-17T08:30:00"},
      {":/usr/share/zoneinfo/Europe/Berlin", "1980-05-17T08:30:00", 327393000, "1980-05-17T08:30:00"},
      {"UTC", "0001-01-01T00:00:00", -62135596800, "0001-01-01T00:00:00"},
      {"UTC", "294247-01-10T04:00:53", 9223372036853, "294247-01-10T04:00:53"},
      {"Pacific/Apia", "2011-12-30T12:00:00", 1325282400, "2011-12-31T12:00:00"},
      {"America/New_York", "2024-03-10T02:30:00", 1710055800, "2024-03-10T03:30:00"}};
  for (const auto& [zone, text, sinceEpoch, written] : rows) {
    ::setenv("TZ", zone, 1);
    const std::chrono::sys_seconds time{std::chrono::seconds(sinceEpoch)};
    EXPECT_EQ(decodeDate(text), Date(time)) << zone << ' ' << text;
    EXPECT_EQ(encodeDate(time + std::chrono::milliseconds(999)), written) << zone;
  }
  ::unsetenv("TZ");  // selects the system's zone
  const std::string written = encodeDate(std::chrono::sys_seconds());
  const std::time_t epoch = 0;
  EXPECT_EQ(written.substr(11, 5), (std::ostringstream() << std::put_time(std::localtime(&epoch), "%H:%M")).str());
}

TEST_F(Dates, AgreeWithTheCalendarOfTheCLibrary) {
  for (const char* zone : {"UTC", "Europe/Amsterdam", "America/St_Johns", "Australia/Lord_Howe", "Antarctica/Troll",
                           "Pacific/Apia", "CET-1CEST,M3.5.0,M10.5.0/3"}) {
    ::setenv("TZ", zone, 1);
    std::mt19937_64 random;
    std::uniform_int_distribution<std::time_t> anyTime(-30000000000, 9223372036853);
    for (std::time_t time = 1293840000; time < 1325500000; time += 1801)  // a year with all changes of the clocks
      for (const std::time_t seconds : {time, anyTime(random)}) {
        const Date date = std::chrono::sys_seconds(std::chrono::seconds(seconds));
        std::ostringstream text;
        text << std::put_time(std::localtime(&seconds), "%Y-%m-%dT%H:%M:%S");
        ASSERT_EQ(encodeDate(date), text.str()) << zone << seconds;
        const Date read = decodeDate(JsonValue(text.str())).value();
        ASSERT_LE(read, date) << zone << seconds;  // the earlier time if the text fits two
        ASSERT_EQ(encodeDate(read), text.str()) << zone << seconds;
      }
  }
}

TEST_F(Dates, ThatAreNotInThePatternOrTheCalendarAreRefused) {
  const auto isRefused = [](const JsonValue& json) {
    return decodeDate(json) == Failure(JsonDecodeError::wrongType(json, "ISO 8601 formatted NSDate"));
  };
  ::setenv("TZ", "UTC", 1);
  EXPECT_EQ(encodeDate(std::chrono::sys_days(std::chrono::year(0) / 12 / 31)), "0000-12-31T00:00:00");
  EXPECT_TRUE(isRefused(327400200));
  for (const char* text :
       {"", "1980-05-17", "0000-12-31T00:00:00", "2023-02-29T00:00:00", "300000-01-01T00:00:00", " 2023-01-01T00:00:00",
        "2023-01-01T00:00:00Z", "2023-01-01T00:00:00.5", "-2023-01-01T00:00:00", "01980-05-17T00:00:00"})
    EXPECT_TRUE(isRefused(text)) << text;
  const std::string good = "1980-10-11T20:50:50";
  for (std::size_t place = 0; place < good.size(); ++place)
    for (int letter = 0; letter < 256; ++letter) {
      std::string text = good;
      text[place] = static_cast<char>(letter);
      const auto date = decodeDate(JsonValue(text));
      EXPECT_EQ(date ? encodeDate(*date) : text, text);
      EXPECT_TRUE(date || isRefused(JsonValue(text))) << text;
    }
}

}  // namespace
}  // namespace HalvernApi::Tests
