// URLs as text. Any thread. Not installed.
#pragma once

#include <optional>

#include "HalvernApi/Platform/Foundation/NSError.hpp"

namespace HalvernApi::Alamofire {

// Whether every character may stand in a URL: those of RFC 3986, so no blanks, control characters or bytes beyond
// ASCII.
bool isUrlText(std::string_view text);

// As it is, but with the user information in front of the host, where a password may stand, elided.
HALVERNAPI_EXPORT std::string printableUrl(std::string_view url);

// The scheme in front of the first colon; empty when there is none.
std::string_view schemeOf(std::string_view url);
bool isHttps(std::string_view url);

// Refuses other schemes than http and https, a missing host, and https by a libcurl without OpenSSL; libcurl checks the
// rest.
std::optional<Foundation::Failure> loadingFault(std::string_view url);

// Whether scheme, host and port are the same, as libcurl reads them. False for what it cannot read.
bool sameOrigin(const std::string& left, const std::string& right);

}  // namespace HalvernApi::Alamofire
