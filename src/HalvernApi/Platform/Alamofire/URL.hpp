// URLs as text. Any thread. Not installed.
#pragma once

#include <optional>

#include "HalvernApi/Platform/Foundation/NSError.hpp"

namespace HalvernApi::Alamofire {

// Whether `text` contains only characters that RFC 3986 allows in a URL. Blanks, control characters and characters
// outside ASCII are not allowed.
bool isUrlText(std::string_view text);

// Returns `url` without the user information in front of the host, which may contain a password.
HALVERNAPI_EXPORT std::string printableUrl(std::string_view url);

// The scheme in front of the first colon; empty if there is none.
std::string_view schemeOf(std::string_view url);
bool isHttps(std::string_view url);

// An error if the scheme is neither http nor https, if the host is missing, or if the scheme is https and libcurl does
// not use OpenSSL. libcurl checks everything else.
std::optional<Foundation::Failure> loadingFault(std::string_view url);

// Whether scheme, host and port are the same, as parsed by libcurl. False if libcurl cannot parse one of the URLs.
bool sameOrigin(const std::string& left, const std::string& right);

}  // namespace HalvernApi::Alamofire
