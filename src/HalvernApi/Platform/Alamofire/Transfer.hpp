// A libcurl easy handle that carries out one exchange after another. It sets the options of a request, receives the
// answer in callbacks of libcurl, and reports the outcome. It does not handle threads, promises and redirects. Only the
// thread of the multi handle may use it. Not installed.
#pragma once

#include <array>

#include "HalvernApi/Platform/Alamofire/Clock.hpp"
#include "HalvernApi/Platform/Alamofire/Curl.hpp"
#include "HalvernApi/Platform/Alamofire/Request.hpp"
#include "HalvernApi/Platform/Alamofire/Sockets.hpp"
#include "HalvernApi/Platform/Foundation/URLSessionConfiguration.hpp"

namespace HalvernApi::Alamofire {

// The data that all transfers of a session share. It must outlive them.
struct TransferContext {
  Foundation::URLSessionConfiguration configuration;
  Sockets sockets{};
  Clock::time_point now{};  // the time, set in every turn of the I/O loop
  int unsent = 0;           // number of transfers whose request has not been sent
};

// The base class of the type that begins transfers. `Transfer::owner` can be cast back to that type.
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

  // Returns the answer. Called when libcurl has reported that the transfer is done. The answer has a failure if
  // `result` is an error or a callback has refused to continue.
  RawResponse outcome(CURLcode result);
  // Returns the part of the answer that was received so far, with `failure`. Called for a transfer that is not done.
  RawResponse interrupted(const Foundation::Failure& failure);
  // The answer's "Location" as an absolute URL. Empty if there is none.
  std::string redirectTarget() const;
  // Whether the connection was not usable. Nothing was sent over it, so the request can start again.
  bool foundStaleConnection() const { return foundStaleConnection_; }
  // When libcurl last delivered data or sent a part of a large body; the clock's epoch if it has not done so yet.
  Clock::time_point lastActivity() const { return lastActivity_; }

  TransferOwner* owner = nullptr;  // the current exchange

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
  int headerLines_ = 0;  // number of lines in the current header block
  curl_off_t sentBytes_ = 0;
  bool sent_ = false;  // the request, or a part of it, was sent
  bool foundStaleConnection_ = false;
  bool succeeded_ = false;
  Clock::time_point lastActivity_;
  std::shared_ptr<Sockets::Socket> socket_;
  // Options that are kept for the next exchange.
  std::shared_ptr<const ParsedUrl> url_;
  std::optional<std::pair<HTTPMethod, bool>> method_;  // the method, and whether a body is sent
  std::vector<curl_slist> headers_;                    // point to the request's headers
  std::array<char, CURL_ERROR_SIZE> errorText_{};
  CurlEasy easy_;  // null before the first exchange; the last member, because its cleanup uses other members
};

}  // namespace HalvernApi::Alamofire
