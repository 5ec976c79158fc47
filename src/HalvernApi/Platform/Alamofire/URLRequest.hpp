#pragma once

#include "HalvernApi/Platform/Alamofire/HTTPHeaders.hpp"

namespace HalvernApi::Alamofire {

// The method of a request; the service's operations are all POSTs.
enum class HTTPMethod { get, head, post, put, patch, delete_ };

// As it stands in the request line.
constexpr std::string_view rawValue(HTTPMethod method) {
  constexpr std::string_view names[] = {"GET", "HEAD", "POST", "PUT", "PATCH", "DELETE"};
  return names[static_cast<std::size_t>(method)];
}

// A request as it goes out. A plain value: any thread.
struct URLRequest {
  std::string url;                      // never rewritten: goes out as it was given
  HTTPMethod method = HTTPMethod::get;  // of the first exchange; a redirect may change it
  HTTPHeaders headers{};                // without those that the transport adds: "Host", "Content-Length"
  std::optional<std::string> body{};    // absent means none; HEAD sends none
};

}  // namespace HalvernApi::Alamofire
