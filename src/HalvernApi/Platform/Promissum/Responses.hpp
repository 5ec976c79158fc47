#pragma once

#include <variant>

#include "HalvernApi/Platform/Foundation/Data.hpp"
#include "HalvernApi/Platform/Foundation/HTTPURLResponse.hpp"
#include "HalvernApi/Platform/Foundation/NSError.hpp"
#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi::Promissum {

// The result of a successful call. The request and the bytes of the body are not kept, to save memory.
template <class T>
struct SuccessResponse {
  T result;                              // the value that the decoder returned
  Foundation::HTTPURLResponse response;  // the answer without its body
};

// The result of a failed call: there was no answer, or the answer is not acceptable. A plain value: any thread.
struct ErrorResponse {
  std::variant<Foundation::NSError, Statham::JsonDecodeError> error;
  std::optional<Foundation::HTTPURLResponse> response{};  // absent if no answer arrived
  std::optional<Foundation::Data> data{};                 // the received part of the body, if any
};

}  // namespace HalvernApi::Promissum

namespace HalvernApi {
using Promissum::ErrorResponse;
using Promissum::SuccessResponse;
}  // namespace HalvernApi
