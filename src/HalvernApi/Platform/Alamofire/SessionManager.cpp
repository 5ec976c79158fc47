#include "HalvernApi/Platform/Alamofire/SessionManager.hpp"

#include "HalvernApi/Platform/Alamofire/AFError.hpp"
#include "HalvernApi/Platform/Alamofire/AcceptLanguage.hpp"
#include "HalvernApi/Platform/Alamofire/Transport.hpp"
#include "HalvernApi/Platform/Alamofire/URL.hpp"

namespace HalvernApi::Alamofire {

using Foundation::CompletionQueue;
using Foundation::NSError;

SessionManager::SessionManager(const Foundation::URLSessionConfiguration& configuration)
    : transport_(std::make_shared<Transport>(configuration, CompletionQueue::on(configuration.completionQueue))) {
  for (const auto& [name, value] : configuration.httpAdditionalHeaders) additionalHeaders_.set(name, value);
}

SessionManager::~SessionManager() {
  Foundation::ProcessExit::noticeFromDestructor();
  transport_->stop();
}

const HTTPHeaders& SessionManager::defaultHTTPHeaders() {
  // Never destroyed, because calls may start during exit.
  static const auto& headers = *new HTTPHeaders{
      {"Accept-Encoding", acceptEncoding()}, {"Accept-Language", acceptLanguage()}, {"User-Agent", userAgent()}};
  return headers;
}

std::shared_ptr<DataRequest> SessionManager::request(std::string_view url, HTTPMethod method,
                                                     const std::optional<Statham::JsonObject>& parameters,
                                                     const ParameterEncoding& encoding, HTTPHeaders headers) {
  URLRequest request{std::string(url), method, std::move(headers)};
  std::optional<NSError> error;
  try {
    if (isUrlText(url)) error = encoding.encode(request, parameters);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {  // an encoding of the application may throw anything
    error = makeError(AFError::parameterEncodingFailed, "The encoding of the parameters threw an exception.");
  }
  if (!isUrlText(request.url))
    return transport_->start(std::nullopt, makeError(AFError::invalidURL, "The text is not a URL."));
  for (const auto& [name, value] : additionalHeaders_)
    if (!request.headers.find(name)) request.headers.set(name, value);
  if (const std::string_view fault = headerFault(request.headers); !error && !fault.empty())
    error = makeError(AFError::invalidHeader, std::string(fault));
  return transport_->start(std::move(request), std::move(error));
}

void SessionManager::flush() { transport_->flush(); }

}  // namespace HalvernApi::Alamofire
