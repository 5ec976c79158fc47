#include "HalvernApi/Platform/Statham/JsonDecoder.hpp"

namespace HalvernApi::Statham {

Decoded<JsonDecoder> JsonDecoder::make(const JsonValue& json) {
  if (const JsonObject* const object = json.if_object()) return JsonDecoder(*object);
  return Foundation::Unexpected<JsonDecodeError>(JsonDecodeError::wrongType(json, "Object"));
}

const JsonValue* JsonDecoder::find(std::string_view key) {
  // Tries the next member first, because members nearly always have the order in which they are read.
  if (next_ == object_->end() || next_->key() != key) next_ = object_->find(key);
  return next_ != object_->end() ? &(next_++)->value() : nullptr;
}

}  // namespace HalvernApi::Statham
