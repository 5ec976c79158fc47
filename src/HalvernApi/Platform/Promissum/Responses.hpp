#pragma once

#include <variant>

#include "HalvernApi/Platform/Foundation/Data.hpp"
#include "HalvernApi/Platform/Foundation/HTTPURLResponse.hpp"
#include "HalvernApi/Platform/Foundation/NSError.hpp"
#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi::Promissum {

// The result of a successful call. The request and the bytes of the body are not kept: once the answer is decoded, they
// would only take up memory.
template <class T>
struct SuccessResponse {
  T result;                              // the value that the decoder returned
  Foundation::HTTPURLResponse response;  // the answer without its body
};

// The result of a failed call: there was no answer, or none that is acceptable. A plain value: any thread.
struct ErrorResponse {
  std::variant<Foundation::NSError, Statham::JsonDecodeError> error;  // what went wrong
  std::optional<Foundation::HTTPURLResponse> response{};              // absent if no answer arrived
  std::optional<Foundation::Data> data{};                             // the part of the body that arrived
};

}  // namespace HalvernApi::Promissum

namespace HalvernApi {
using Promissum::ErrorResponse;
using Promissum::SuccessResponse;
}  // namespace HalvernApi
