#pragma once

#include "HalvernApi/Platform/Alamofire/URLRequest.hpp"
#include "HalvernApi/Platform/Foundation/NSError.hpp"
#include "HalvernApi/Platform/Statham/Json.hpp"

namespace HalvernApi::Alamofire {

// Writes the parameters of a request into the request. Applications may use another encoding than JSONEncoding.
class HALVERNAPI_EXPORT ParameterEncoding {
 public:
  virtual ~ParameterEncoding();
  // Adds the parameters to `request`, or does nothing if they are absent. Called on the threads that start requests,
  // possibly on several at the same time. If it returns an error, the request fails with this error and is not sent. If
  // it throws, the error is AFError::parameterEncodingFailed; std::bad_alloc is passed on.
  virtual std::optional<Foundation::NSError> encode(URLRequest& request,
                                                    const std::optional<Statham::JsonObject>& parameters) const = 0;
};

// Writes the parameters as one JSON object into the body. Sets "Content-Type: application/json" if the request has no
// such header. Fails if a text is not UTF-8, a number is not finite, or more than 512 arrays and objects are nested.
// Any thread.
class HALVERNAPI_EXPORT JSONEncoding final : public ParameterEncoding {
 public:
  // A shared instance, which is never destroyed.
  static const JSONEncoding& default_();
  std::optional<Foundation::NSError> encode(URLRequest& request,
                                            const std::optional<Statham::JsonObject>& parameters) const override;
};

}  // namespace HalvernApi::Alamofire
