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
// Which of `rawValues`, by its index, the text in `json` is.
HALVERNAPI_EXPORT Foundation::Expected<std::size_t, JsonDecodeError> decodeRawValue(
    const JsonValue& json, std::string_view typeName, std::span<const std::string_view> rawValues);
// \endcond

// An enumeration whose cases travel as texts: the base of Sex and DeviceOrientation. A value: any thread.
//
// `Enum` derives from it and has its name in `typeName` and the texts, in the order of the cases, in `rawValues`.
template <class Enum, class CaseType>
class HALVERNAPI_EXPORT RawEnum {
 public:
  // The enumeration beneath, which a `switch` sees.
  using Case = CaseType;

  // Implicit, so that a case stands for the value.
  constexpr RawEnum(Case value) : case_(value) {}
  // A switch over an `Enum` is checked for completeness; two of them are compared by their cases.
  constexpr operator Case() const { return case_; }

  // The case that travels as `rawValue`, letter by letter; absent when there is none.
  static std::optional<Enum> fromRawValue(std::string_view rawValue) {
    for (std::size_t index = 0; index < Enum::rawValues.size(); ++index)
      if (Enum::rawValues[index] == rawValue) return Enum(static_cast<Case>(index));
    return std::nullopt;
  }
  // The text as which it travels.
  std::string_view rawValue() const { return Enum::rawValues[static_cast<std::size_t>(case_)]; }
  // The position of the case, from 0; std::hash has it too.
  std::int64_t hashValue() const { return static_cast<std::int64_t>(case_); }

  // Fails with wrongType when `json` is not a string, and with wrongEnumRawValue when it is none of the texts.
  static Foundation::Expected<Enum, JsonDecodeError> decodeJson(const JsonValue& json) {
    return decodeRawValue(json, Enum::typeName, Enum::rawValues).map([](std::size_t index) {
      return Enum(static_cast<Case>(index));
    });
  }
  // `rawValue()`, for a JSON string.
  std::string encodeJson() const { return std::string(rawValue()); }

  // Prints `rawValue()`.
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
