// Where a redirect leads. Any thread. Not installed.
#pragma once

#include "HalvernApi/Platform/Alamofire/URLRequest.hpp"

namespace HalvernApi::Alamofire {

// The next request if the answer to `request` has the status `status` and redirects to the absolute URL `target`.
// Absent if the answer is not a redirect, or leads to another origin. Methods change as in RFC 9110 and in browsers:
// after 301 and 302 a POST becomes a GET, after 303 every method but HEAD becomes a GET, and 307 and 308 repeat the
// request unchanged.
std::optional<URLRequest> redirect(const URLRequest& request, int status, const std::string& target);

}  // namespace HalvernApi::Alamofire
