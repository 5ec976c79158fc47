#pragma once

#include "HalvernApi/Platform/Alamofire/URLRequest.hpp"
#include "HalvernApi/Platform/Foundation/NSError.hpp"
#include "HalvernApi/Platform/Statham/Json.hpp"

namespace HalvernApi::Alamofire {

// How the parameters of a request become part of it: JSONEncoding, or an application's own.
class HALVERNAPI_EXPORT ParameterEncoding {
 public:
  virtual ~ParameterEncoding();
  // Any thread. Puts the parameters into the request; absent ones leave it as it is. The error, if there is one, fails
  // the request before anything is sent.
  virtual std::optional<Foundation::NSError> encode(URLRequest& request,
                                                    const std::optional<Statham::JsonObject>& parameters) const = 0;
};

// The parameters as one JSON object in the body, with "Content-Type: application/json" where there is no such header
// yet. Fails on text that is not UTF-8 and on numbers that are not finite.
class HALVERNAPI_EXPORT JSONEncoding final : public ParameterEncoding {
 public:
  // One for all requests; never destroyed.
  static const JSONEncoding& default_();
  std::optional<Foundation::NSError> encode(URLRequest& request,
                                            const std::optional<Statham::JsonObject>& parameters) const override;
};

}  // namespace HalvernApi::Alamofire
