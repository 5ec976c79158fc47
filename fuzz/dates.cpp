// The first byte chooses a time zone; what follows is read once as the text of a date and once as microseconds since
// 1970. The C library's calendar says what a written date has to be.
#include <array>
#include <cstring>
#include <ctime>

#include "HalvernApi/Extensions/Date+JsonGen.hpp"
#include "HalvernApi/Platform/Statham/JsonCodec.hpp"
#include "Support.hpp"

namespace HalvernApi::Fuzz {
namespace {

// Whole hours, odd minutes, half an hour of summer time, two hours of it, a day that was left out, and a rule.
constexpr std::array zones = {
    "UTC",          "Europe/Amsterdam",          "America/St_Johns", "Australia/Lord_Howe", "Antarctica/Troll",
    "Pacific/Apia", "CET-1CEST,M3.5.0,M10.5.0/3"};

auto read(std::string_view text) { return decodeDate(JsonValue(boost::json::string_view(text))); }

std::time_t secondsOf(Date date) {
  return std::chrono::floor<std::chrono::seconds>(date.time()).time_since_epoch().count();
}

}  // namespace

void check(std::string_view input) {
  if (input.empty()) return;
  const std::size_t zone = static_cast<unsigned char>(input[0]) % zones.size();
  setenv("TZ", zones[zone], 1);
  input.remove_prefix(1);
  if (const auto date = read(input)) require(read(encodeDate(*date)) == date, "a date survives being written");

  std::chrono::microseconds::rep microseconds = 0;
  std::memcpy(&microseconds, input.data(), std::min(input.size(), sizeof microseconds));
  const Date date = std::chrono::sys_time<std::chrono::microseconds>(std::chrono::microseconds(microseconds));
  const std::string text = encodeDate(date);
  const std::time_t seconds = secondsOf(date);
  std::tm local{};
  require(localtime_r(&seconds, &local) != nullptr, "the C library knows the time");
  if (local.tm_year + 1900 < 1) return;  // not read
  std::array<char, 80> expected{};
  std::strftime(expected.data(), expected.size(), "%04Y-%m-%dT%H:%M:%S", &local);
  require(text == expected.data(), "a date is written as the C library's calendar has it");
  const auto again = read(text);
  require(again.has_value(), "a written date can be read");
  const auto lost = seconds - secondsOf(*again);
  require(lost == 0 || (zone != 0 && lost > 0 && encodeDate(*again) == text),
          "a written date is read as its second, or as an earlier one of the same name");
}

}  // namespace HalvernApi::Fuzz
