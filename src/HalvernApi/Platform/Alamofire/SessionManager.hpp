#pragma once

#include "HalvernApi/Platform/Alamofire/ParameterEncoding.hpp"
#include "HalvernApi/Platform/Alamofire/Request.hpp"
#include "HalvernApi/Platform/Foundation/URLSessionConfiguration.hpp"

// HTTP sessions, requests and answers.
namespace HalvernApi::Alamofire {

class Transport;

// An HTTP session. It has persistent connections that its requests share, one thread for all input and output, and the
// completion queue that runs the handlers of its requests.
//
// Any thread may call its members. Threads and connections are created by the first request. In a forked child,
// requests of the session fail with NSURLErrorCancelled, and earlier promises do not settle.
class HALVERNAPI_EXPORT SessionManager {
 public:
  // Copies the configuration. If it is invalid, the requests fail.
  explicit SessionManager(const Foundation::URLSessionConfiguration& configuration);
  // Cancels all requests in flight: their promises soon settle with NSURLErrorCancelled, on the completion queue. Does
  // not wait for the network or for handlers. May run inside a handler.
  ~SessionManager();
  SessionManager(const SessionManager&) = delete;
  SessionManager& operator=(const SessionManager&) = delete;

  // Returns "Accept-Encoding", "Accept-Language" and "User-Agent". The languages are those of the environment variables
  // LANGUAGE, LC_ALL, LC_MESSAGES and LANG at the first call, or "en". HalvernApi::request sends these headers. The
  // member function `request` does not add them.
  static const HTTPHeaders& defaultHTTPHeaders();

  // Starts a request immediately. Adds the headers of URLSessionConfiguration::httpAdditionalHeaders that `headers`
  // does not contain. Every failure is reported as the outcome of the request.
  std::shared_ptr<DataRequest> request(std::string_view url, HTTPMethod method,
                                       const std::optional<Statham::JsonObject>& parameters,
                                       const ParameterEncoding& encoding, HTTPHeaders headers);

  // Makes all requests that start later use new connections. Call it when the device has moved to another network,
  // because earlier connections may be dead without an error. Requests in flight continue. After a sleep of the device,
  // the session does this automatically.
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
