#pragma once

#include "HalvernApi/Platform/Foundation/NSError.hpp"

namespace HalvernApi::Alamofire {

// The domain of errors in the request or in the content of the answer. The code is an AFError. Errors of the transport
// have NSURLErrorDomain.
inline constexpr std::string_view AFErrorDomain = "Alamofire.AFError";

// The codes of AFErrorDomain.
enum AFError : int {
  invalidURL,                   // the text is not a URL; nothing was sent
  parameterEncodingFailed,      // a parameter cannot be encoded; nothing was sent
  invalidHeader,                // a header is not valid, or only the session may set it; nothing was sent
  responseValidationFailed,     // the status or the content type is not acceptable
  responseSerializationFailed,  // the body is not JSON, or the decoder threw
};

// `description` is a sentence for developers. It must not quote data that was sent or received.
inline Foundation::NSError makeError(AFError code, std::string description) {
  return {std::string(AFErrorDomain), static_cast<int>(code), std::move(description)};
}

}  // namespace HalvernApi::Alamofire

namespace HalvernApi {
using Alamofire::AFError;
using Alamofire::AFErrorDomain;
}  // namespace HalvernApi
