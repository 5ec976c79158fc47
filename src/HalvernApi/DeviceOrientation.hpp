#pragma once

#include "HalvernApi/Platform/Statham/RawEnum.hpp"

namespace HalvernApi {

// \cond
enum class HALVERNAPI_EXPORT DeviceOrientationCase : std::uint8_t { left, right };
// \endcond

// The ear to which a hearing aid or a measurement belongs. Works in `switch (orientation) { case
// DeviceOrientation::left: ... }`. A value: any thread.
class HALVERNAPI_EXPORT DeviceOrientation : public Statham::RawEnum<DeviceOrientation, DeviceOrientationCase> {
 public:
  using RawEnum::RawEnum;
  static const DeviceOrientation left,  // "Left" in JSON
      right;                            // "Right" in JSON
  // \cond
  static constexpr std::string_view typeName = "DeviceOrientation";
  static constexpr std::array<std::string_view, 2> rawValues = {"Left", "Right"};
  // \endcond
};

inline constexpr DeviceOrientation DeviceOrientation::left = Case::left, DeviceOrientation::right = Case::right;

// \cond
extern template Foundation::Expected<DeviceOrientation, Statham::JsonDecodeError>
Statham::RawEnum<DeviceOrientation, DeviceOrientationCase>::decodeJson(const Statham::JsonValue&);
extern template std::string Statham::RawEnum<DeviceOrientation, DeviceOrientationCase>::encodeJson() const;
// \endcond

}  // namespace HalvernApi
