#pragma once

#include "HalvernApi/Platform/Alamofire/HTTPHeaders.hpp"

namespace HalvernApi::Alamofire {

// The method of a request. All operations of the service use POST.
enum class HTTPMethod { get, head, post, put, patch, delete_ };

// The method's name in the request line.
constexpr std::string_view rawValue(HTTPMethod method) {
  constexpr std::string_view names[] = {"GET", "HEAD", "POST", "PUT", "PATCH", "DELETE"};
  return names[static_cast<std::size_t>(method)];
}

// An HTTP request. A plain value: any thread.
struct URLRequest {
  std::string url;                      // sent unchanged
  HTTPMethod method = HTTPMethod::get;  // of the first exchange; a redirect may change it
  HTTPHeaders headers{};                // without "Host" and "Content-Length", which the transport adds
  std::optional<std::string> body{};    // absent means no body; not sent with HEAD
};

}  // namespace HalvernApi::Alamofire
