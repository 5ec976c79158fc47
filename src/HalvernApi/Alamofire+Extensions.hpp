#pragma once

#include "HalvernApi/Error.hpp"
#include "HalvernApi/Platform/Alamofire/SessionManager.hpp"
#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

namespace HalvernApi {

// \cond
namespace Detail {

// The part of `request` that does not depend on T: sends the request and validates its answer.
HALVERNAPI_EXPORT std::shared_ptr<DataRequest> startValidated(SessionManager& session, std::string_view url,
                                                              HTTPMethod method,
                                                              const std::optional<JsonObject>& parameters,
                                                              const ParameterEncoding& encoding,
                                                              const std::optional<std::string>& apiKey,
                                                              const std::optional<std::string>& accessToken);

}  // namespace Detail
// \endcond

// Sends a request, checks the status and the content type of its answer, and decodes the answer. All operations of the
// service use this function. Applications may use it for other endpoints. Any thread. Every failure is an Error of the
// promise.
//
// `apiKey` and `accessToken` are sent as the headers "Api-Key" and "Access-Token". An absent header is not sent. An
// empty header is sent without a value. Without `parameters`, the request has no body. `decoder`, usually a record's
// `decodeJson`, runs on the completion queue. If it throws, the promise fails. If the status is 204 or 205 and there is
// no body, it receives null.
//
// The body of every answer is printed to standard output if it is UTF-8. Log lines are passed to Environment::log.
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
