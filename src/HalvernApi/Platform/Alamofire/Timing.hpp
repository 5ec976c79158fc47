// The clock of the transport and the limits that it can reckon with. Not installed.
#pragma once

#include <algorithm>
#include <chrono>

namespace HalvernApi::Alamofire {

using Clock = std::chrono::steady_clock;

// An interval that can be added to any time of the clock without running over: from 0 to a year.
constexpr std::chrono::milliseconds bounded(std::chrono::milliseconds interval) {
  return std::clamp(interval, std::chrono::milliseconds(0), std::chrono::milliseconds(std::chrono::hours(24 * 365)));
}

}  // namespace HalvernApi::Alamofire
