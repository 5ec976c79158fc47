// A libcurl easy handle that carries out one exchange after another. It sets the options of a request, receives the
// answer by libcurl's callbacks, and reports the outcome. It does not know threads, promises and redirects. Used by the
// thread of its multi handle only. Not installed.
#pragma once

#include <array>

#include "HalvernApi/Platform/Alamofire/Clock.hpp"
#include "HalvernApi/Platform/Alamofire/Curl.hpp"
#include "HalvernApi/Platform/Alamofire/Request.hpp"
#include "HalvernApi/Platform/Alamofire/Sockets.hpp"
#include "HalvernApi/Platform/Foundation/URLSessionConfiguration.hpp"

namespace HalvernApi::Alamofire {

// Shared by the transfers of a session. Must outlive them.
struct TransferContext {
  Foundation::URLSessionConfiguration configuration;
  Sockets sockets{};
  Clock::time_point now{};  // when libcurl was last called
  int unsent = 0;           // number of transfers whose request has not been sent
};

// The type that begins transfers derives from this one, so that `Transfer::owner` can be cast back to it.
struct TransferOwner {};

class Transfer {
 public:
  explicit Transfer(TransferContext& context) : context_(context) {}
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  // The transfer that owns `easy`.
  static Transfer& of(CURL* easy);

  // Sets all options and starts the exchange. `request` must not change or be destroyed before `end`. After an error
  // nothing is sent. May also throw std::bad_alloc. Call `end` in all cases.
  CURLcode begin(CURLM* multi, const URLRequest& request, std::shared_ptr<const ParsedUrl> url);
  // Removes the handle from `multi`. May be called at any time. Returns false after a failure: then the transfer must
  // not be used again, because libcurl counts the lost connections of a handle and reports a wrong error after five.
  bool end(CURLM* multi);

  // The answer when libcurl has reported that the transfer is done. It has a failure if `result` is an error or a
  // callback has refused to continue.
  RawResponse outcome(CURLcode result);
  // The part of the answer that was received so far, with the given failure. For a transfer that is not done.
  RawResponse interrupted(const Foundation::Failure& failure);
  // The answer's "Location" as an absolute URL. Empty if there is none.
  std::string redirectTarget() const;
  // The connection could not be used, and nothing was sent over it. The request can start again.
  bool foundStaleConnection() const { return foundStaleConnection_; }
  // The last time at which libcurl delivered data, or sent a part of a large body. The clock's epoch if that has not
  // happened.
  Clock::time_point lastActivity() const { return lastActivity_; }

  TransferOwner* owner = nullptr;  // of the current exchange

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
  // The state of the current exchange.
  RawResponse answer_;  // the part that was received; has a failure if a callback has refused to continue
  std::size_t headerBytes_ = 0;
  int headerLines_ = 0;  // of the current header block
  curl_off_t sentBytes_ = 0;
  bool sent_ = false;  // the request, or a part of it, was sent
  bool foundStaleConnection_ = false;
  bool succeeded_ = false;
  Clock::time_point lastActivity_;
  std::shared_ptr<Sockets::Socket> socket_;
  // Options that are kept for the next exchange.
  std::shared_ptr<const ParsedUrl> url_;
  std::optional<std::pair<HTTPMethod, bool>> method_;  // and whether it sends a body
  std::vector<curl_slist> headers_;                    // point to the request's headers
  std::array<char, CURL_ERROR_SIZE> errorText_{};
  CurlEasy easy_;  // null before the first exchange; the last member, because its cleanup uses the others
};

}  // namespace HalvernApi::Alamofire
