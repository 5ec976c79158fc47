// An enumeration whose cases travel as texts. A value: any thread.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <type_traits>

#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi::Statham {

// Which of `rawValues`, by its index, the text in `json` is.
HALVERNAPI_EXPORT Foundation::Expected<std::size_t, JsonDecodeError> decodeRawValue(
    const JsonValue& json, std::string_view typeName, std::span<const std::string_view> rawValues);

// `Enum` derives from it and has its name in `typeName` and the texts, in the order of the cases, in `rawValues`.
template <class Enum, class CaseType>
class HALVERNAPI_EXPORT RawEnum {
 public:
  using Case = CaseType;

  constexpr RawEnum(Case value) : case_(value) {}
  // A switch over an `Enum` is checked for completeness; two of them are compared by their cases.
  constexpr operator Case() const { return case_; }

  // Compares exactly; absent when it is none of the texts.
  static std::optional<Enum> fromRawValue(std::string_view rawValue) {
    for (std::size_t index = 0; index < Enum::rawValues.size(); ++index)
      if (Enum::rawValues[index] == rawValue) return Enum(static_cast<Case>(index));
    return std::nullopt;
  }
  std::string_view rawValue() const { return Enum::rawValues[static_cast<std::size_t>(case_)]; }
  std::int64_t hashValue() const { return static_cast<std::int64_t>(case_); }

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

template <class T>
concept IsRawEnum = std::is_base_of_v<RawEnum<T, typename T::Case>, T>;

}  // namespace HalvernApi::Statham

template <HalvernApi::Statham::IsRawEnum Enum>
struct std::hash<Enum> {
  std::size_t operator()(Enum value) const { return static_cast<std::size_t>(value.hashValue()); }
};
