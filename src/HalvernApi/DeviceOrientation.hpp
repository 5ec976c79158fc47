// The ear on which a hearing aid sits. A value: any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "HalvernApi/Platform/Foundation/Expected.hpp"
#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi {

// `switch (orientation) { case DeviceOrientation::left: ... }` works, and is checked for completeness.
class HALVERNAPI_EXPORT DeviceOrientation {
 public:
  enum class Case : std::uint8_t { left, right };
  static const DeviceOrientation left;   // "Left"
  static const DeviceOrientation right;  // "Right"

  constexpr DeviceOrientation(Case value) : case_(value) {}
  constexpr operator Case() const { return case_; }

  // Compares exactly; absent when it is neither text.
  static std::optional<DeviceOrientation> fromRawValue(std::string_view rawValue);
  std::string_view rawValue() const;
  std::size_t hashValue() const;

  static Expected<DeviceOrientation, JsonDecodeError> decodeJson(const JsonValue& json);
  std::string encodeJson() const;

  friend constexpr bool operator==(DeviceOrientation a, DeviceOrientation b) { return a.case_ == b.case_; }
  friend HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, DeviceOrientation);

 private:
  Case case_;
};

inline constexpr DeviceOrientation DeviceOrientation::left = DeviceOrientation::Case::left;
inline constexpr DeviceOrientation DeviceOrientation::right = DeviceOrientation::Case::right;

}  // namespace HalvernApi

template <>
struct std::hash<HalvernApi::DeviceOrientation> {
  std::size_t operator()(HalvernApi::DeviceOrientation orientation) const { return orientation.hashValue(); }
};
