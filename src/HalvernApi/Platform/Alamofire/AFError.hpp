#pragma once

#include "HalvernApi/Platform/Foundation/NSError.hpp"

namespace HalvernApi::Alamofire {

// The domain of errors that the session finds, as opposed to errors of the transport. `code` is an AFError.
inline constexpr std::string_view AFErrorDomain = "Alamofire.AFError";

// The codes of AFErrorDomain.
enum AFError : int {
  invalidURL,                   // the text is not a URL; nothing was sent
  parameterEncodingFailed,      // JSON cannot carry a parameter; nothing was sent
  invalidHeader,                // a header's name or value would break the header block; nothing was sent
  responseValidationFailed,     // the status or the content type is not acceptable
  responseSerializationFailed,  // the body is not JSON, or the decoder threw
};

// `description` is a sentence for a developer. It must not quote data that was sent or received.
inline Foundation::NSError makeError(AFError code, std::string description) {
  return {std::string(AFErrorDomain), static_cast<int>(code), std::move(description)};
}

}  // namespace HalvernApi::Alamofire

namespace HalvernApi {
using Alamofire::AFError;
using Alamofire::AFErrorDomain;
}  // namespace HalvernApi
