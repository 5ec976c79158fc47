#include "HalvernApi/ProfileResponse.hpp"

namespace HalvernApi {

std::optional<Data> ConfigurationResponse::leftData() const {
  return leftConfiguration_ ? Foundation::decodeBase64(*leftConfiguration_) : std::nullopt;
}

std::optional<Data> ConfigurationResponse::rightData() const {
  return rightConfiguration_ ? Foundation::decodeBase64(*rightConfiguration_) : std::nullopt;
}

}  // namespace HalvernApi
