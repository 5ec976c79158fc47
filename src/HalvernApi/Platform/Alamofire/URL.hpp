// URLs as text. Free functions: any thread. Not installed.
#pragma once

#include <string>
#include <string_view>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi::Alamofire {

// Whether every character may stand in a URL: those of RFC 3986, so no blanks, control characters or bytes beyond
// ASCII.
bool isUrlText(std::string_view text);

// As it is, but with the user information in front of the host, where a password may stand, elided.
HALVERNAPI_EXPORT std::string printableUrl(std::string_view url);

// The scheme in front of the first colon; empty when there is none.
std::string_view schemeOf(std::string_view url);

}  // namespace HalvernApi::Alamofire
