#include "HalvernApi/Platform/Foundation/NSError.hpp"

#include <ostream>

namespace HalvernApi::Foundation {

std::string NSError::description() const {
  return "Error Domain=" + domain + " Code=" + std::to_string(code) + " \"" + localizedDescription + '"';
}

std::ostream& operator<<(std::ostream& out, const NSError& error) { return out << error.description(); }

}  // namespace HalvernApi::Foundation
