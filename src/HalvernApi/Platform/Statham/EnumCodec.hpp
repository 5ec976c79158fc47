// How enumerations are read, for the units that instantiate RawEnum. Not installed.
#pragma once

#include <algorithm>

#include "HalvernApi/Platform/Statham/JsonCodec.hpp"
#include "HalvernApi/Platform/Statham/RawEnum.hpp"

namespace HalvernApi::Statham {

template <class Enum, class Case>
std::optional<Enum> RawEnum<Enum, Case>::fromRawValue(std::string_view rawValue) {
  const auto& texts = Enum::rawValues;
  const auto found = std::find(texts.begin(), texts.end(), rawValue);
  return found != texts.end() ? std::optional<Enum>(static_cast<Case>(found - texts.begin())) : std::nullopt;
}

template <class Enum, class Case>
Decoded<Enum> RawEnum<Enum, Case>::decodeJson(const JsonValue& json) {
  const auto text = JsonCodec<std::string>::decodeJson(json);
  if (!text) return Foundation::Unexpected<JsonDecodeError>(text.error());
  if (const auto value = fromRawValue(*text)) return *value;
  return Foundation::Unexpected<JsonDecodeError>(
      JsonDecodeError::wrongEnumRawValue(*text, std::string(Enum::typeName)));
}

}  // namespace HalvernApi::Statham
