#include "HalvernApi/Platform/Statham/RawEnum.hpp"

#include <algorithm>

#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

namespace HalvernApi::Statham {

Decoded<std::size_t> decodeRawValue(const JsonValue& json, std::string_view typeName,
                                    std::span<const std::string_view> rawValues) {
  const auto text = JsonCodec<std::string>::decodeJson(json);
  if (!text) return Foundation::Unexpected<JsonDecodeError>(text.error());
  const auto found = std::find(rawValues.begin(), rawValues.end(), *text);
  if (found != rawValues.end()) return static_cast<std::size_t>(found - rawValues.begin());
  return Foundation::Unexpected<JsonDecodeError>(JsonDecodeError::wrongEnumRawValue(*text, std::string(typeName)));
}

}  // namespace HalvernApi::Statham
