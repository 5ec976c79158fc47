// The methods of HTTP requests.
#pragma once

#include <string_view>

namespace HalvernApi::Alamofire {

enum class HTTPMethod { get, head, post, put, patch, delete_ };

// As it stands in the request line.
constexpr std::string_view rawValue(HTTPMethod method) {
  constexpr std::string_view names[] = {"GET", "HEAD", "POST", "PUT", "PATCH", "DELETE"};
  return names[static_cast<std::size_t>(method)];
}

}  // namespace HalvernApi::Alamofire

namespace HalvernApi {
using Alamofire::HTTPMethod;
}  // namespace HalvernApi
