#include "HalvernApi/Platform/Statham/EnumCodec.hpp"

#include <algorithm>

namespace HalvernApi::Statham {

std::optional<std::size_t> ordinalOf(std::string_view text, RawValues rawValues) {
  const auto found = std::find(rawValues.begin(), rawValues.end(), text);
  if (found == rawValues.end()) return std::nullopt;
  return static_cast<std::size_t>(found - rawValues.begin());
}

Decoded<std::size_t> decodeOrdinal(const JsonValue& json, RawValues rawValues, std::string_view type) {
  const boost::json::string* const text = json.if_string();
  if (text == nullptr) return Foundation::Unexpected<JsonDecodeError>(JsonDecodeError::wrongType(json, "String"));
  const std::string_view raw(text->data(), text->size());
  if (const auto ordinal = ordinalOf(raw, rawValues)) return *ordinal;
  return Foundation::Unexpected<JsonDecodeError>(JsonDecodeError::wrongEnumRawValue(raw, std::string(type)));
}

}  // namespace HalvernApi::Statham
