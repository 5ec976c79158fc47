#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <type_traits>

#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi::Statham {

// \cond
// Returns the position in `rawValues` of the text in `json`.
HALVERNAPI_EXPORT Foundation::Expected<std::size_t, JsonDecodeError> decodeRawValue(
    const JsonValue& json, std::string_view typeName, std::span<const std::string_view> rawValues);
// \endcond

// The base of enumerations whose cases are sent as texts, such as Sex and DeviceOrientation. A plain value: any thread.
//
// `Enum` is the derived class. Its `typeName` is the name of the enumeration, and its `rawValues` are the texts in the
// order of the cases.
template <class Enum, class CaseType>
class HALVERNAPI_EXPORT RawEnum {
 public:
  // The underlying enumeration, for a `switch`.
  using Case = CaseType;

  // Implicit, so that a case can be used as an `Enum`.
  constexpr RawEnum(Case value) : case_(value) {}
  // With this conversion, the compiler checks that a `switch` over an `Enum` is complete. Comparisons use it, too.
  constexpr operator Case() const { return case_; }

  // The case whose text is exactly `rawValue`; absent if there is none.
  static std::optional<Enum> fromRawValue(std::string_view rawValue) {
    for (std::size_t index = 0; index < Enum::rawValues.size(); ++index)
      if (Enum::rawValues[index] == rawValue) return Enum(static_cast<Case>(index));
    return std::nullopt;
  }
  // The text that is sent for the case.
  std::string_view rawValue() const { return Enum::rawValues[static_cast<std::size_t>(case_)]; }
  // The position of the case, starting at 0. std::hash returns it, too.
  std::int64_t hashValue() const { return static_cast<std::int64_t>(case_); }

  // Fails with wrongType if `json` is not a string, and with wrongEnumRawValue if it is none of the texts.
  static Foundation::Expected<Enum, JsonDecodeError> decodeJson(const JsonValue& json) {
    return decodeRawValue(json, Enum::typeName, Enum::rawValues).map([](std::size_t index) {
      return Enum(static_cast<Case>(index));
    });
  }
  std::string encodeJson() const { return std::string(rawValue()); }

  friend std::ostream& operator<<(std::ostream& out, RawEnum value) { return out << value.rawValue(); }

 private:
  Case case_;
};

// \cond
template <class T>
concept IsRawEnum = std::is_base_of_v<RawEnum<T, typename T::Case>, T>;
// \endcond

}  // namespace HalvernApi::Statham

// \cond
template <HalvernApi::Statham::IsRawEnum Enum>
struct std::hash<Enum> {
  std::size_t operator()(Enum value) const { return static_cast<std::size_t>(value.hashValue()); }
};
// \endcond
