#pragma once

#include <chrono>
#include <compare>
#include <functional>

namespace HalvernApi::Foundation {

// A point in time in microseconds. Years before 1 and after 9999 are possible. A birth date is represented by midnight
// of that day in the device's time zone; see `decodeDate`. A plain value: any thread.
class Date {
 public:
  // A finer duration is rounded down to whole microseconds.
  template <class Duration>
  constexpr Date(std::chrono::sys_time<Duration> time) : time_(std::chrono::floor<std::chrono::microseconds>(time)) {}

  // The time since the Unix epoch. Leap seconds are not counted.
  constexpr std::chrono::sys_time<std::chrono::microseconds> time() const { return time_; }

  friend constexpr bool operator==(const Date&, const Date&) = default;
  // Compares the counts, because some standard libraries have no `<=>` for time points.
  friend constexpr std::strong_ordering operator<=>(const Date& left, const Date& right) {
    return left.time_.time_since_epoch().count() <=> right.time_.time_since_epoch().count();
  }

 private:
  std::chrono::sys_time<std::chrono::microseconds> time_;
};

}  // namespace HalvernApi::Foundation

// \cond
template <>
struct std::hash<HalvernApi::Foundation::Date> {
  std::size_t operator()(HalvernApi::Foundation::Date date) const {
    return std::hash<std::chrono::microseconds::rep>{}(date.time().time_since_epoch().count());
  }
};
// \endcond

namespace HalvernApi {
using Foundation::Date;
}  // namespace HalvernApi
