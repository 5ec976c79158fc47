#include "HalvernApi/Extensions/Date+JsonGen.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "HalvernApi/Platform/Foundation/Posix.hpp"
#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

namespace HalvernApi {
namespace {

using std::chrono::hours, std::chrono::minutes, std::chrono::seconds;

// Makes the C library update the time zone. If TZ is not set, the C library checks a file, which takes one or two
// microseconds. Therefore this function lets it check at most ten times a second.
void refreshTimeZone() {
  static std::atomic<std::int64_t> lastLook = 0;  // in tenths of a second; 0 if TZ was set
  std::int64_t now = 0;
  if (std::getenv("TZ") == nullptr) {
    using Tenths = std::chrono::duration<std::int64_t, std::deci>;
    now = std::chrono::ceil<Tenths>(std::chrono::steady_clock::now().time_since_epoch()).count();
    if (lastLook.load(std::memory_order_relaxed) == now) return;
  }
  static std::mutex mutex;  // the C library locks, too, but ThreadSanitizer cannot detect that
  const std::lock_guard lock(mutex);
  ::tzset();
  lastLook.store(now, std::memory_order_relaxed);
}

LocalTime localTime(std::time_t time) {
  LocalTime local{};
  localtime_r(&time, &local);
  return local;
}

std::time_t offsetAt(std::time_t time) { return localTime(time).tm_gmtoff; }

// Returns the time at which local clocks show `wallClock`. `wallClock` is counted as if it were UTC.
std::time_t timeOf(std::time_t wallClock) {
  constexpr std::time_t maxOffset = std::time_t{25} * 3600;
  const std::time_t before = offsetAt(wallClock - maxOffset), then = offsetAt(wallClock - before);
  if (then == before) return wallClock - before;
  for (const std::time_t offset : {then, offsetAt(wallClock + maxOffset)})
    if (offsetAt(wallClock - offset) == offset) return wallClock - offset;
  return wallClock - before;  // the change of the clocks skips this local time
}

std::optional<Date> parse(std::string_view text) {
  // A year of four to six digits, then each part at a fixed position.
  constexpr std::string_view pattern = "-00-00T00:00:00";
  if (text.size() < pattern.size() + 4 || text.size() > pattern.size() + 6) return std::nullopt;
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  const std::string_view yearText = text.substr(0, text.size() - pattern.size());
  const std::string_view rest = text.substr(yearText.size());
  bool fits = std::all_of(yearText.begin(), yearText.end(), isDigit) && (yearText.size() == 4 || yearText[0] != '0');
  for (std::size_t at = 0; at < pattern.size(); ++at)
    fits &= pattern[at] == '0' ? isDigit(rest[at]) : rest[at] == pattern[at];
  if (!fits) return std::nullopt;
  int year = 0;
  for (const char c : yearText) year = 10 * year + (c - '0');
  const auto number = [rest](std::size_t at) { return 10 * (rest[at] - '0') + (rest[at + 1] - '0'); };
  const int hour = number(7), minute = number(10), second = number(13);
  // The calendar repeats every 400 years, and std::chrono::year ends at 32767.
  const std::chrono::year_month_day day(std::chrono::year(2000 + year % 400),
                                        std::chrono::month(static_cast<unsigned>(number(1))),
                                        std::chrono::day(static_cast<unsigned>(number(4))));
  if (year < 1 || !day.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  const auto wallClock = std::chrono::sys_days(day) + std::chrono::days((year / 400 - 5) * 146097) + hours(hour) +
                         minutes(minute) + seconds(second);
  refreshTimeZone();
  const seconds time(timeOf(wallClock.time_since_epoch().count()));
  if (time > std::chrono::floor<seconds>(std::chrono::microseconds::max())) return std::nullopt;
  return Date(std::chrono::sys_time<seconds>(time));
}

}  // namespace

Decoded<Date> decodeDate(const JsonValue& json) {
  if (const boost::json::string* const text = json.if_string())
    if (const auto date = parse(std::string_view(text->data(), text->size()))) return *date;
  return Unexpected<JsonDecodeError>(JsonDecodeError::wrongType(json, "ISO 8601 formatted NSDate"));
}

std::string encodeDate(Date date) {
  refreshTimeZone();
  const LocalTime local = localTime(std::chrono::floor<seconds>(date.time()).time_since_epoch().count());
  std::array<char, 32> text;
  const int size = std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d", local.tm_year + 1900,
                                 local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  return std::string(text.data(), static_cast<std::size_t>(size));
}

Decoded<Date> Statham::JsonCodec<Date>::decodeJson(const JsonValue& json) { return decodeDate(json); }
JsonValue Statham::JsonCodec<Date>::encodeJson(Date date) {
  return JsonCodec<std::string>::encodeJson(encodeDate(date));
}

}  // namespace HalvernApi
