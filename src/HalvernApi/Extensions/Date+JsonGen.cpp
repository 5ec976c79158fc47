#include "HalvernApi/Extensions/Date+JsonGen.hpp"

#include <absl/time/civil_time.h>
#include <absl/time/clock.h>
#include <absl/time/time.h>

#include <algorithm>
#include <cstdlib>

#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

namespace HalvernApi::Statham {

using Foundation::Date;

namespace {

constexpr int lastYear = 294246;  // the last whole one that microseconds in 64 bits reach

// The device's time zone. Abseil finds it by name in a table that all threads share; as long as TZ stays as it was,
// each thread remembers what it found.
absl::TimeZone localZone() {
  thread_local std::optional<std::string> known;
  thread_local absl::TimeZone zone;
  const char* const name = std::getenv("TZ");
  if (const std::string_view current = name != nullptr ? name : ""; known != current) {
    zone = absl::LocalTimeZone();
    known = current;
  }
  return zone;
}

std::optional<Date> parse(std::string_view text) {
  // A year of four to six digits, and behind it everything in its place.
  constexpr std::string_view pattern = "-00-00T00:00:00";
  if (text.size() < pattern.size() + 4 || text.size() > pattern.size() + 6) return std::nullopt;
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  const std::string_view yearText = text.substr(0, text.size() - pattern.size());
  const std::string_view rest = text.substr(yearText.size());
  bool fits = std::all_of(yearText.begin(), yearText.end(), isDigit);
  for (std::size_t at = 0; at < pattern.size(); ++at)
    fits &= pattern[at] == '0' ? isDigit(rest[at]) : rest[at] == pattern[at];
  if (!fits) return std::nullopt;
  int year = 0;
  for (const char c : yearText) year = 10 * year + (c - '0');
  const auto number = [rest](std::size_t at) { return 10 * (rest[at] - '0') + (rest[at + 1] - '0'); };
  const int month = number(1), day = number(4), hour = number(7), minute = number(10), second = number(13);
  const absl::CivilSecond civil(year, month, day, hour, minute, second);
  // Civil times carry what is too large over into the next field; a calendar has no 30th of February.
  const bool exists = year >= 1 && year <= lastYear && civil.month() == month && civil.day() == day &&
                      civil.hour() == hour && civil.minute() == minute && civil.second() == second;
  if (!exists) return std::nullopt;
  const absl::Time time = localZone().At(civil).pre;
  return Date(std::chrono::sys_time<std::chrono::seconds>(std::chrono::seconds(absl::ToUnixSeconds(time))));
}

}  // namespace

Foundation::Expected<Date, JsonDecodeError> JsonCodec<Date>::decodeJson(const JsonValue& json) {
  if (const boost::json::string* const text = json.if_string())
    if (const auto date = parse(std::string_view(text->data(), text->size()))) return *date;
  return Foundation::Unexpected<JsonDecodeError>(JsonDecodeError::wrongType(json, "ISO 8601 formatted NSDate"));
}

std::string JsonCodec<Date>::encodeJson(Date date) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(date.time()).time_since_epoch().count();
  const absl::CivilSecond civil = localZone().At(absl::FromUnixSeconds(seconds)).cs;
  // The pattern's year is that of its era, and the era is not part of it.
  const long year = static_cast<long>(civil.year() > 0 ? civil.year() : 1 - civil.year());
  std::string text;
  const auto append = [&text](long number, std::size_t digits) {
    const std::string figures = std::to_string(number);
    text.append(digits - std::min(digits, figures.size()), '0') += figures;
  };
  append(year, 4);
  const std::pair<char, int> others[] = {
      {'-', civil.month()}, {'-', civil.day()}, {'T', civil.hour()}, {':', civil.minute()}, {':', civil.second()}};
  for (const auto& [separator, number] : others) {
    text += separator;
    append(number, 2);
  }
  return text;
}

}  // namespace HalvernApi::Statham
