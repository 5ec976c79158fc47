#pragma once

#include <variant>

#include "HalvernApi/Platform/Foundation/Data.hpp"
#include "HalvernApi/Platform/Foundation/HTTPURLResponse.hpp"
#include "HalvernApi/Platform/Foundation/NSError.hpp"
#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi::Promissum {

// What a promise of a decoded answer comes to. The request and the bytes of the body are not kept: once decoded, they
// would only take up memory with the promise.
template <class T>
struct SuccessResponse {
  T result;                              // as the decoder made it
  Foundation::HTTPURLResponse response;  // that it came with
};

// What it comes to when there is none, or none that is acceptable. A plain value: any thread.
struct ErrorResponse {
  std::variant<Foundation::NSError, Statham::JsonDecodeError> error;  // what went wrong
  std::optional<Foundation::HTTPURLResponse> response{};              // absent when no answer came
  std::optional<Foundation::Data> data{};                             // the body as far as it came
};

}  // namespace HalvernApi::Promissum

namespace HalvernApi {
using Promissum::ErrorResponse;
using Promissum::SuccessResponse;
}  // namespace HalvernApi
