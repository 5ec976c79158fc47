#pragma once

#include <string>

namespace HalvernApi::Foundation {

// What came back of an HTTP exchange besides the body. A plain value: any thread.
struct HTTPURLResponse {
  int statusCode = 0;         // of the last answer, where redirects were followed
  std::string contentType{};  // the "Content-Type" header as received; empty when there was none

  friend bool operator==(const HTTPURLResponse&, const HTTPURLResponse&) = default;
};

}  // namespace HalvernApi::Foundation

namespace HalvernApi {
using Foundation::HTTPURLResponse;
}  // namespace HalvernApi
