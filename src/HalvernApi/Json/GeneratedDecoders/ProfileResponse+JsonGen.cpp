#include <ostream>

#include "HalvernApi/Platform/Statham/RecordCodec.hpp"
#include "HalvernApi/ProfileResponse.hpp"

namespace HalvernApi {
namespace {

using Statham::field;

constexpr Statham::RecordCodec configCodec("ConfigurationResponse",  //
                                           field("leftConfiguration", &ConfigurationResponse::leftConfiguration),
                                           field("rightConfiguration", &ConfigurationResponse::rightConfiguration));

void print(std::ostream& out, const std::optional<std::string>& text) {
  if (text)
    out << text->size() << " characters";
  else
    out << "absent";
}

}  // namespace

Decoded<ConfigurationResponse> ConfigurationResponse::decodeJson(const JsonValue& json) {
  return configCodec.decode(json);
}
JsonObject ConfigurationResponse::encodeJson() const { return configCodec.encode(*this); }

std::ostream& operator<<(std::ostream& out, const ConfigurationResponse& response) {
  print(out << "ConfigurationResponse(left: ", response.leftConfiguration());
  print(out << ", right: ", response.rightConfiguration());
  return out << ')';
}

}  // namespace HalvernApi
