// The user's sex as the service knows it. A value: any thread.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "HalvernApi/Platform/Foundation/Expected.hpp"
#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi {

// `switch (sex) { case Sex::male: ... }` works, and is checked for completeness.
class HALVERNAPI_EXPORT Sex {
 public:
  enum class Case : std::uint8_t { male, female, unknown };
  static const Sex male;     // "Male"
  static const Sex female;   // "Female"
  static const Sex unknown;  // "NotKnown", never "unknown"

  constexpr Sex(Case value) : case_(value) {}
  constexpr operator Case() const { return case_; }

  // Compares exactly; absent when it is none of the three texts.
  static std::optional<Sex> fromRawValue(std::string_view rawValue);
  std::string_view rawValue() const;
  std::size_t hashValue() const;

  static Expected<Sex, JsonDecodeError> decodeJson(const JsonValue& json);
  std::string encodeJson() const;

  friend constexpr bool operator==(Sex a, Sex b) { return a.case_ == b.case_; }
  friend HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, Sex);

 private:
  Case case_;
};

inline constexpr Sex Sex::male = Sex::Case::male;
inline constexpr Sex Sex::female = Sex::Case::female;
inline constexpr Sex Sex::unknown = Sex::Case::unknown;

}  // namespace HalvernApi

template <>
struct std::hash<HalvernApi::Sex> {
  std::size_t operator()(HalvernApi::Sex sex) const { return sex.hashValue(); }
};
