#include <array>
#include <ostream>

#include "HalvernApi/DeviceOrientation.hpp"
#include "HalvernApi/Platform/Statham/EnumCodec.hpp"

namespace HalvernApi {
namespace {

constexpr std::array<std::string_view, 2> rawValues = {"Left", "Right"};

}  // namespace

std::optional<DeviceOrientation> DeviceOrientation::fromRawValue(std::string_view rawValue) {
  return Statham::caseOf<DeviceOrientation>(rawValue, rawValues);
}
std::string_view DeviceOrientation::rawValue() const { return rawValues[static_cast<std::size_t>(case_)]; }
std::size_t DeviceOrientation::hashValue() const { return std::hash<std::size_t>{}(static_cast<std::size_t>(case_)); }

Expected<DeviceOrientation, JsonDecodeError> DeviceOrientation::decodeJson(const JsonValue& json) {
  return Statham::decodeCase<DeviceOrientation>(json, rawValues, "DeviceOrientation");
}
std::string DeviceOrientation::encodeJson() const { return std::string(rawValue()); }

std::ostream& operator<<(std::ostream& out, DeviceOrientation orientation) { return out << orientation.rawValue(); }

}  // namespace HalvernApi
