// Enumerations that travel as text, over the list of their raw values in case order. Any thread. Not installed.
#pragma once

#include <span>

#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

namespace HalvernApi::Statham {

using RawValues = std::span<const std::string_view>;

// The position of `text`, compared exactly; absent when it is none of them.
HALVERNAPI_EXPORT std::optional<std::size_t> ordinalOf(std::string_view text, RawValues rawValues);

// Fails with wrongType and "String", or with wrongEnumRawValue and `type`.
HALVERNAPI_EXPORT Decoded<std::size_t> decodeOrdinal(const JsonValue& json, RawValues rawValues, std::string_view type);

template <class Enum>
std::optional<Enum> caseOf(std::string_view text, RawValues rawValues) {
  if (const auto ordinal = ordinalOf(text, rawValues)) return Enum(static_cast<typename Enum::Case>(*ordinal));
  return std::nullopt;
}

template <class Enum>
Decoded<Enum> decodeCase(const JsonValue& json, RawValues rawValues, std::string_view type) {
  return decodeOrdinal(json, rawValues, type).map([](std::size_t ordinal) {
    return Enum(static_cast<typename Enum::Case>(ordinal));
  });
}

}  // namespace HalvernApi::Statham
