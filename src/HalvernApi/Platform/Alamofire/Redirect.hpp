// Where a redirect leads. Any thread. Not installed.
#pragma once

#include "HalvernApi/Platform/Alamofire/URLRequest.hpp"

namespace HalvernApi::Alamofire {

// The request that follows one which was answered with `status` and a "Location" that stands for the absolute URL
// `target`. Absent when the answer is the last: it does not redirect, or it leads to another origin. As browsers and
// RFC 9110 have it, 301 and 302 turn a POST into a GET, 303 all but a HEAD, and 307 and 308 repeat the request.
std::optional<URLRequest> redirect(const URLRequest& request, int status, const std::string& target);

}  // namespace HalvernApi::Alamofire
