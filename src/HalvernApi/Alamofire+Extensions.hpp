#pragma once

#include "HalvernApi/Error.hpp"
#include "HalvernApi/Platform/Alamofire/SessionManager.hpp"
#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

namespace HalvernApi {

// \cond
namespace Detail {

// What `request` does before it decodes.
HALVERNAPI_EXPORT std::shared_ptr<DataRequest> startValidated(SessionManager& session, std::string_view url,
                                                              HTTPMethod method,
                                                              const std::optional<JsonObject>& parameters,
                                                              const ParameterEncoding& encoding,
                                                              const std::optional<std::string>& apiKey,
                                                              const std::optional<std::string>& accessToken);

}  // namespace Detail
// \endcond

// The one road that every call takes: sends a request, checks status and content type of its answer, and decodes it.
// The service's operations go by it; an application may, for an endpoint of its own. Any thread. Never fails itself:
// every failure is the promise's, as an Error.
//
// `apiKey` and `accessToken` go into the headers "Api-Key" and "Access-Token"; an absent one is not sent, an empty one
// is. Absent `parameters` make a request without a body. `decoder`, usually a record's `decodeJson`, runs on the
// completion queue; when it throws, the promise fails. An answer 204 or 205 without a body reads as null.
//
// The body of every answer is printed on standard output, if it is UTF-8; log lines go to Environment::log.
template <class T>
Promise<T, Error> request(SessionManager& session, std::string_view url, HTTPMethod method,
                          std::optional<JsonObject> parameters, const ParameterEncoding& encoding,
                          std::optional<std::string> apiKey, std::optional<std::string> accessToken,
                          std::function<Expected<T, JsonDecodeError>(const JsonValue&)> decoder) {
  return Detail::startValidated(session, url, method, parameters, encoding, apiKey, accessToken)
      ->template decodedPromise<T>(std::move(decoder), [](Expected<T, ErrorResponse> decoded, const auto&) {
        return std::move(decoded).map_error([](ErrorResponse&& error) { return Error(std::move(error)); });
      });
}

}  // namespace HalvernApi
