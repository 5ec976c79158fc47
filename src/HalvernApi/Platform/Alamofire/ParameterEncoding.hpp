#pragma once

#include "HalvernApi/Platform/Alamofire/URLRequest.hpp"
#include "HalvernApi/Platform/Foundation/NSError.hpp"
#include "HalvernApi/Platform/Statham/Json.hpp"

namespace HalvernApi::Alamofire {

// Writes the parameters of a request into the request. Applications may pass an encoding of their own instead of
// JSONEncoding.
class HALVERNAPI_EXPORT ParameterEncoding {
 public:
  virtual ~ParameterEncoding();
  // Called on the threads that start requests, possibly on several at the same time. Adds the parameters to `request`,
  // or does nothing if they are absent. If it returns an error, the request fails with it and nothing is sent.
  virtual std::optional<Foundation::NSError> encode(URLRequest& request,
                                                    const std::optional<Statham::JsonObject>& parameters) const = 0;
};

// Writes the parameters as one JSON object into the body. Sets "Content-Type: application/json" if the request has no
// such header. Fails for text that is not UTF-8 and for numbers that are not finite. Any thread.
class HALVERNAPI_EXPORT JSONEncoding final : public ParameterEncoding {
 public:
  // A shared instance, which is never destroyed.
  static const JSONEncoding& default_();
  std::optional<Foundation::NSError> encode(URLRequest& request,
                                            const std::optional<Statham::JsonObject>& parameters) const override;
};

}  // namespace HalvernApi::Alamofire
