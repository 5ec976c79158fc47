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

// Takes a number of `least` to `most` digits off the front of `text`; absent when it does not start with one.
std::optional<int> takeNumber(std::string_view& text, std::size_t least, std::size_t most) {
  int number = 0;
  std::size_t digits = 0;
  for (; digits < text.size() && text[digits] >= '0' && text[digits] <= '9'; ++digits) {
    if (digits == most) return std::nullopt;
    number = 10 * number + (text[digits] - '0');
  }
  if (digits < least) return std::nullopt;
  text.remove_prefix(digits);
  return number;
}

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
  std::array<int, 6> numbers{};
  constexpr std::string_view separators = "--T::";
  for (std::size_t index = 0; index < numbers.size(); ++index) {
    if (index > 0) {
      if (!text.starts_with(separators[index - 1])) return std::nullopt;
      text.remove_prefix(1);
    }
    const auto number = index == 0 ? takeNumber(text, 4, 6) : takeNumber(text, 2, 2);
    if (!number) return std::nullopt;
    numbers[index] = *number;
  }
  const auto [year, month, day, hour, minute, second] = numbers;
  const absl::CivilSecond civil(year, month, day, hour, minute, second);
  // Civil times carry what is too large over into the next field; a calendar has no 30th of February.
  const bool exists = year >= 1 && year <= lastYear && civil.month() == month && civil.day() == day &&
                      civil.hour() == hour && civil.minute() == minute && civil.second() == second;
  if (!text.empty() || !exists) return std::nullopt;
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
