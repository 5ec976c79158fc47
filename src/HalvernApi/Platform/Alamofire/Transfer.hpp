// One of libcurl's easy handles, which carries one exchange after the other: the options of a request, the callbacks
// with which libcurl delivers the answer, and the outcome. Knows nothing of threads, promises and redirects. For the
// thread of its multi handle alone. Not installed.
#pragma once

#include <array>

#include "HalvernApi/Platform/Alamofire/Clock.hpp"
#include "HalvernApi/Platform/Alamofire/Curl.hpp"
#include "HalvernApi/Platform/Alamofire/Request.hpp"
#include "HalvernApi/Platform/Alamofire/Sockets.hpp"
#include "HalvernApi/Platform/Foundation/URLSessionConfiguration.hpp"

namespace HalvernApi::Alamofire {

// What the transfers of a session share. Outlives them.
struct TransferContext {
  Foundation::URLSessionConfiguration configuration;
  Sockets sockets{};
  Clock::time_point now{};  // when libcurl was last called
  int unsent = 0;           // transfers whose requests have not gone out
};

// The base of the type that begins transfers.
struct TransferOwner {};

class Transfer {
 public:
  explicit Transfer(TransferContext& context) : context_(context) {}
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  // The one whose handle libcurl names.
  static Transfer& of(CURL* easy);

  // Sets all options and starts the exchange. The request has to stay until `end`. An error means that nothing is sent;
  // may also throw std::bad_alloc.
  CURLcode begin(CURLM* multi, const URLRequest& request, std::shared_ptr<const ParsedUrl> url);
  // Takes the handle out of libcurl, at any time. False if it must not carry another exchange: after a failure, because
  // libcurl counts the connections that a handle has lost, and gives up with a wrong reason after the fifth.
  bool end(CURLM* multi);

  // Once libcurl says that the transfer is done: the answer, and the failure for `result` or for what a callback
  // refused.
  RawResponse outcome(CURLcode result);
  // Before that: what has arrived of the answer, with the failure that ends the exchange.
  RawResponse interrupted(const Foundation::Failure& failure);
  // The absolute URL that the answer's "Location" stands for; empty without one.
  std::string redirectTarget() const;
  // The connection turned out to be of no use before anything was sent over it: the request can begin again.
  bool foundStaleConnection() const { return foundStaleConnection_; }
  // When libcurl last delivered something, or took a piece of a large body; the clock's epoch when it has not.
  Clock::time_point lastActivity() const { return lastActivity_; }

  TransferOwner* owner = nullptr;  // of the exchange that was begun last

 private:
  CURLcode setSharedOptions();
  void setHeaders(const URLRequest& request);
  void refuse(Foundation::NSURLError code, std::string_view words) {
    answer_.failure = Foundation::urlFailure(code, words);
  }
  void refuseForMemory();
  void addContentType();
  bool acceptsHeader(char first);
  bool append(std::string_view bytes);

  static std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* transfer);
  static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* transfer);
  static int onProgress(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent);
  static curl_socket_t onConnection(void* transfer, curlsocktype, curl_sockaddr* address);
  static int onRequest(void* transfer, char* peer, char* local, int peerPort, int localPort);

  TransferContext& context_;
  // Of the exchange.
  RawResponse answer_;  // so far; it has a failure once a callback has refused to continue
  std::size_t headerBytes_ = 0;
  int headerLines_ = 0;  // of the header block so far
  curl_off_t sentBytes_ = 0;
  bool sent_ = false;  // the request went out, or at least began to
  bool foundStaleConnection_ = false;
  bool succeeded_ = false;
  Clock::time_point lastActivity_;
  std::shared_ptr<Sockets::Socket> socket_;
  // Options that stay set from one exchange to the next.
  std::shared_ptr<const ParsedUrl> url_;
  std::optional<std::pair<HTTPMethod, bool>> method_;  // and whether it sends a body
  std::vector<curl_slist> headers_;                    // refer to the request's
  std::array<char, CURL_ERROR_SIZE> errorText_{};
  CurlEasy easy_;  // null before the first exchange; the last member, because it refers to others when it is destroyed
};

}  // namespace HalvernApi::Alamofire
