// A request as it goes out. A plain value: any thread.
#pragma once

#include "HalvernApi/Platform/Alamofire/HTTPHeaders.hpp"

namespace HalvernApi::Alamofire {

enum class HTTPMethod { get, head, post, put, patch, delete_ };

// As it stands in the request line.
constexpr std::string_view rawValue(HTTPMethod method) {
  constexpr std::string_view names[] = {"GET", "HEAD", "POST", "PUT", "PATCH", "DELETE"};
  return names[static_cast<std::size_t>(method)];
}

struct URLRequest {
  std::string url;  // never rewritten: goes out as it was given
  HTTPMethod method = HTTPMethod::get;
  HTTPHeaders headers{};
  std::optional<std::string> body{};
};

}  // namespace HalvernApi::Alamofire
