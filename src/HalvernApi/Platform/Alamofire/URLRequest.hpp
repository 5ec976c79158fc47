// A request as it goes out. A plain value: any thread.
#pragma once

#include "HalvernApi/Platform/Alamofire/HTTPHeaders.hpp"
#include "HalvernApi/Platform/Alamofire/HTTPMethod.hpp"

namespace HalvernApi::Alamofire {

struct URLRequest {
  std::string url;  // never rewritten: goes out as it was given
  HTTPMethod method = HTTPMethod::get;
  HTTPHeaders headers{};
  std::optional<std::string> body{};
};

}  // namespace HalvernApi::Alamofire

namespace HalvernApi {
using Alamofire::URLRequest;
}  // namespace HalvernApi
