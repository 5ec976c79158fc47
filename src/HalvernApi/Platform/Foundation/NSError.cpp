#include "HalvernApi/Platform/Foundation/NSError.hpp"

#include <cstring>
#include <ostream>

namespace HalvernApi::Foundation {

std::string NSError::description() const {
  return "Error Domain=" + domain + " Code=" + std::to_string(code) + " \"" + localizedDescription + '"';
}

Failure posixFailure(int code) { return {NSPOSIXErrorDomain, code, std::strerror(code)}; }

std::ostream& operator<<(std::ostream& out, const NSError& error) { return out << error.description(); }

}  // namespace HalvernApi::Foundation
