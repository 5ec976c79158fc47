#pragma once

#include "HalvernApi/Platform/Alamofire/ParameterEncoding.hpp"
#include "HalvernApi/Platform/Alamofire/Request.hpp"
#include "HalvernApi/Platform/Foundation/URLSessionConfiguration.hpp"

// HTTP sessions, requests and answers.
namespace HalvernApi::Alamofire {

class Transport;

// An HTTP session. It has persistent connections that its requests share, one thread that does all input and output,
// and the completion queue on which the handlers of its requests run.
//
// Any thread may call its members. Threads and connections are created by the first request. After fork() a session is
// useless in the child: requests that are started there fail, and earlier promises do not settle there.
class HALVERNAPI_EXPORT SessionManager {
 public:
  // Copies the configuration. If it is invalid, the requests fail.
  explicit SessionManager(const Foundation::URLSessionConfiguration& configuration);
  // Cancels all requests in flight: their promises soon settle with NSURLErrorCancelled, on the completion queue. Does
  // not wait for the network or for handlers. May run inside a handler.
  ~SessionManager();
  SessionManager(const SessionManager&) = delete;
  SessionManager& operator=(const SessionManager&) = delete;

  // "Accept-Encoding", "Accept-Language" and "User-Agent". The languages are the user's by LANGUAGE, LC_ALL,
  // LC_MESSAGES and LANG at the time of the first call, or "en" if these name none. The function `request` of
  // HalvernApi adds these headers; callers of the member `request` pass them if they want them.
  static const HTTPHeaders& defaultHTTPHeaders();

  // Starts a request immediately. Adds those headers of URLSessionConfiguration::httpAdditionalHeaders that `headers`
  // does not contain. Every failure is reported as the outcome of the request.
  std::shared_ptr<DataRequest> request(std::string_view url, HTTPMethod method,
                                       const std::optional<Statham::JsonObject>& parameters,
                                       const ParameterEncoding& encoding, HTTPHeaders headers);

  // Makes all requests that start later use new connections. Call it when the device has moved to another network,
  // because earlier connections may be dead without an error. Requests in flight continue. The session does this by
  // itself after the device was asleep.
  void flush();

 private:
  HTTPHeaders additionalHeaders_;  // not changed after construction
  const std::shared_ptr<Transport> transport_;
};

}  // namespace HalvernApi::Alamofire

namespace HalvernApi {
using Alamofire::DataRequest;
using Alamofire::DefaultDataResponse;
using Alamofire::HTTPHeaders;
using Alamofire::HTTPMethod;
using Alamofire::JSONEncoding;
using Alamofire::ParameterEncoding;
using Alamofire::Request;
using Alamofire::SessionManager;
using Alamofire::URLRequest;
}  // namespace HalvernApi
