#pragma once

#include <string>

namespace HalvernApi::Foundation {

// The answer to an HTTP request, without its body. A plain value: any thread.
struct HTTPURLResponse {
  int statusCode = 0;         // such as 200; after redirects, the status of the last answer
  std::string contentType{};  // the "Content-Type" header as received; empty if there was none

  friend bool operator==(const HTTPURLResponse&, const HTTPURLResponse&) = default;
};

}  // namespace HalvernApi::Foundation

namespace HalvernApi {
using Foundation::HTTPURLResponse;
}  // namespace HalvernApi
