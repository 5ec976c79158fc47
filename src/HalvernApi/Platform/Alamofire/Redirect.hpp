// The request that follows a redirect. Any thread. Not installed.
#pragma once

#include "HalvernApi/Platform/Alamofire/URLRequest.hpp"

namespace HalvernApi::Alamofire {

// Returns the next request if the answer to `request` has the status `status` and redirects to the absolute URL
// `target`. Absent if `status` is not a redirect, or if `target` has another origin. Methods change as in RFC 9110 and
// in browsers: after 301 and 302 a POST becomes a GET, after 303 every method except HEAD becomes a GET, and 307 and
// 308 repeat the request unchanged.
std::optional<URLRequest> redirect(const URLRequest& request, int status, const std::string& target);

}  // namespace HalvernApi::Alamofire
