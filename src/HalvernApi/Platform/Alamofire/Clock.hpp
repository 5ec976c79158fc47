// The clock of time limits. Any thread. Not installed.
#pragma once

#include <algorithm>
#include <chrono>

namespace HalvernApi::Alamofire {

using Clock = std::chrono::steady_clock;

// Returns `interval` clamped to between 0 and a year. Adding it to a time of the clock cannot overflow.
constexpr std::chrono::milliseconds bounded(std::chrono::milliseconds interval) {
  return std::clamp(interval, std::chrono::milliseconds(0), std::chrono::milliseconds(std::chrono::hours(24 * 365)));
}

}  // namespace HalvernApi::Alamofire
