// The session library's own error domain.
#pragma once

#include "HalvernApi/Platform/Foundation/NSError.hpp"

namespace HalvernApi::Alamofire {

inline constexpr std::string_view AFErrorDomain = "Alamofire.AFError";

enum class AFError : int {
  invalidURL,
  parameterEncodingFailed,
  invalidHeader,
  responseValidationFailed,
  responseSerializationFailed,
};

// `description` is a sentence for a developer; it never quotes what was sent or received.
inline Foundation::NSError makeError(AFError code, std::string description) {
  return {std::string(AFErrorDomain), static_cast<int>(code), std::move(description)};
}

}  // namespace HalvernApi::Alamofire
