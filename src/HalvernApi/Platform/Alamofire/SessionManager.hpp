#pragma once

#include "HalvernApi/Platform/Alamofire/ParameterEncoding.hpp"
#include "HalvernApi/Platform/Alamofire/Request.hpp"
#include "HalvernApi/Platform/Foundation/URLSessionConfiguration.hpp"

// HTTP: sessions, requests and their answers.
namespace HalvernApi::Alamofire {

class Transport;

// An HTTP session: connections that are kept alive and shared, one thread that does all input and output, and the
// completion queue on which the handlers of its requests run.
//
// Every member may be called from any thread. Threads and connections come with the first request. After fork() a
// session is of no use in the child: a request that is started there fails, and promises from before do not settle
// there.
class HALVERNAPI_EXPORT SessionManager {
 public:
  // Copies the configuration, and checks nothing: what is wrong with it fails the requests.
  explicit SessionManager(const Foundation::URLSessionConfiguration& configuration);
  // Ends what is in flight: every promise settles, with NSURLErrorCancelled, soon and on the completion queue. Neither
  // waits for the network nor for handlers, and may be called inside one.
  ~SessionManager();
  SessionManager(const SessionManager&) = delete;
  SessionManager& operator=(const SessionManager&) = delete;

  // "Accept-Encoding", "Accept-Language" (the user's languages by LANGUAGE, LC_ALL, LC_MESSAGES and LANG, as they are
  // at the first call; "en" where these name none) and "User-Agent". `request` of HalvernApi begins with them; here
  // they are the caller's to pass.
  static const HTTPHeaders& defaultHTTPHeaders();

  // Starts a request at once, with `headers` and those of URLSessionConfiguration::httpAdditionalHeaders that are not
  // among them. Never fails itself: whatever is wrong comes as the request's answer.
  std::shared_ptr<DataRequest> request(std::string_view url, HTTPMethod method,
                                       const std::optional<Statham::JsonObject>& parameters,
                                       const ParameterEncoding& encoding, HTTPHeaders headers);

  // Lets requests that start later use new connections, for when the device has moved to another network: connections
  // from before may be dead without a sign of it. Requests in flight continue. The session does it by itself when the
  // device has been asleep.
  void flush();

 private:
  HTTPHeaders additionalHeaders_;  // unchanged after construction
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
