// What came back of an HTTP exchange besides the body. A plain value: any thread.
#pragma once

#include <string>

namespace HalvernApi::Foundation {

struct HTTPURLResponse {
  int statusCode = 0;
  std::string contentType{};  // the "Content-Type" header as received; empty when there was none

  friend bool operator==(const HTTPURLResponse&, const HTTPURLResponse&) = default;
};

}  // namespace HalvernApi::Foundation

namespace HalvernApi {
using Foundation::HTTPURLResponse;
}  // namespace HalvernApi
