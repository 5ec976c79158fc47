#include "HalvernApi/Extensions/Date+JsonGen.hpp"

#include <absl/time/civil_time.h>
#include <absl/time/clock.h>
#include <absl/time/time.h>

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

namespace HalvernApi::Statham {

using Foundation::Date;

namespace {

// Takes a number of `least` to `most` digits off the front of `text`; absent when it does not start with one.
std::optional<int> takeNumber(std::string_view& text, std::size_t least, std::size_t most) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  const auto digits = static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isDigit) - text.begin());
  if (digits < least || digits > most) return std::nullopt;
  int number = 0;
  std::from_chars(text.data(), text.data() + digits, number);
  text.remove_prefix(digits);
  return number;
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
  const bool exists = year >= 1 && civil.month() == month && civil.day() == day && civil.hour() == hour &&
                      civil.minute() == minute && civil.second() == second;
  if (!text.empty() || !exists) return std::nullopt;
  const absl::Time time = absl::LocalTimeZone().At(civil).pre;
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
  const absl::CivilSecond civil = absl::LocalTimeZone().At(absl::FromUnixSeconds(seconds)).cs;
  // The pattern's year is that of its era, and the era is not part of it.
  const long year = static_cast<long>(civil.year() > 0 ? civil.year() : 1 - civil.year());
  std::array<char, 48> text;
  const int length = std::snprintf(text.data(), text.size(), "%04ld-%02d-%02dT%02d:%02d:%02d", year, civil.month(),
                                   civil.day(), civil.hour(), civil.minute(), civil.second());
  return std::string(text.data(), static_cast<std::size_t>(length));
}

}  // namespace HalvernApi::Statham
