// Helpers for libcurl: owning handles, options with checked results, parsed URLs, the features of this libcurl, and the
// conversion of its errors. Any thread. Not installed.
//
// The functions throw std::bad_alloc if libcurl runs out of memory.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>

#include "HalvernApi/Platform/Foundation/NSError.hpp"

namespace HalvernApi::Alamofire {

template <auto cleanup>
struct CurlCleanup {
  template <class Handle>
  void operator()(Handle* handle) const {
    cleanup(handle);
  }
};

using CurlEasy = std::unique_ptr<CURL, CurlCleanup<curl_easy_cleanup>>;
using CurlMulti = std::unique_ptr<CURLM, CurlCleanup<curl_multi_cleanup>>;
using CurlUrl = std::unique_ptr<CURLU, CurlCleanup<curl_url_cleanup>>;

// Sets options of one handle. After the first failure, `set` does nothing and `result` returns that failure.
class EasyOptions {
 public:
  explicit EasyOptions(CURL* easy) : easy_(easy) {}
  template <class Value>
  void set(CURLoption option, Value value) {
    if (result_ == CURLE_OK) result_ = curl_easy_setopt(easy_, option, value);
  }
  // Like `set`, but ignores an option that this build of libcurl does not support. Use it only if such a build does not
  // support the feature of the option either, for example proxies.
  template <class Value>
  void setIfKnown(CURLoption option, Value value) {
    if (result_ != CURLE_OK) return;
    set(option, value);
    if (result_ == CURLE_UNKNOWN_OPTION || result_ == CURLE_NOT_BUILT_IN) result_ = CURLE_OK;
  }
  CURLcode result() const { return result_; }

 private:
  CURL* const easy_;
  CURLcode result_ = CURLE_OK;
};

// Initialises libcurl at the first call. Must be called before a handle for transfers is created.
void initialiseCurl();

// The content encodings that this libcurl can decode, as the value of "Accept-Encoding".
std::string acceptEncoding();
// "HalvernApi/1.0.0 libcurl/7.88.1"
std::string userAgent();
// The version in libcurl's format: 0x075801 is 7.88.1.
unsigned curlVersion();
// An error if this libcurl does not use OpenSSL. Other TLS libraries write session keys to the file that SSLKEYLOGFILE
// names, and do not report why a certificate was rejected.
std::optional<Foundation::Failure> tlsFault();

// The parsed URL, or null if libcurl cannot parse it. `flags` are those of curl_url_set.
CurlUrl parseUrl(const std::string& url, unsigned flags = CURLU_PATH_AS_IS);
// Returns a part of `url`, not decoded; empty if the URL does not contain this part. `flags` are those of curl_url_get.
std::string urlPart(const CurlUrl& url, CURLUPart part, unsigned flags = CURLU_DEFAULT_PORT);

// A parsed URL, which all transfers to the URL share. libcurl would parse a URL that is given as text for each
// transfer.
struct ParsedUrl {
  explicit ParsedUrl(std::string url);

  const std::string text;
  CurlUrl parts;  // null if transfers must use the text
};

// The platform's error for a transfer of `handle` that ended with `result`. A null handle is allowed.
Foundation::Failure failureOf(CURL* handle, CURLcode result);

}  // namespace HalvernApi::Alamofire
