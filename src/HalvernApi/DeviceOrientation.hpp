// The ear on which a hearing aid sits. A value: any thread.
#pragma once

#include "HalvernApi/Platform/Statham/RawEnum.hpp"

namespace HalvernApi {

enum class HALVERNAPI_EXPORT DeviceOrientationCase : std::uint8_t { left, right };

// `switch (orientation) { case DeviceOrientation::left: ... }`
class HALVERNAPI_EXPORT DeviceOrientation : public Statham::RawEnum<DeviceOrientation, DeviceOrientationCase> {
 public:
  using RawEnum::RawEnum;
  static const DeviceOrientation left, right;
  static constexpr std::string_view typeName = "DeviceOrientation";
  static constexpr std::array<std::string_view, 2> rawValues = {"Left", "Right"};
};

inline constexpr DeviceOrientation DeviceOrientation::left = Case::left, DeviceOrientation::right = Case::right;

}  // namespace HalvernApi
