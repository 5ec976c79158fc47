#include "HalvernApi/Platform/Alamofire/ParameterEncoding.hpp"

#include "HalvernApi/Platform/Alamofire/AFError.hpp"
#include "HalvernApi/Platform/Statham/JsonText.hpp"

namespace HalvernApi::Alamofire {

ParameterEncoding::~ParameterEncoding() = default;

const JSONEncoding& JSONEncoding::default_() {
  static const auto& encoding = *new JSONEncoding;  // never destroyed, because calls may start during exit
  return encoding;
}

std::optional<Foundation::NSError> JSONEncoding::encode(URLRequest& request,
                                                        const std::optional<Statham::JsonObject>& parameters) const {
  if (!parameters) return std::nullopt;
  auto body = Statham::writeJson(*parameters);
  if (!body)
    return makeError(AFError::parameterEncodingFailed,
                     "The parameters cannot be written as JSON: " + body.error() + ".");
  request.body = *std::move(body);
  if (!request.headers.find("Content-Type")) request.headers.set("Content-Type", "application/json");
  return std::nullopt;
}

}  // namespace HalvernApi::Alamofire
