// What belongs to libcurl as a whole: its handles as values that clean up after themselves, options whose results are
// checked, URLs in parts, what this libcurl can do, and its errors as the platform's. Any thread. Not installed.
//
// Functions that need memory throw std::bad_alloc when libcurl has none: that is never taken for an absent or malformed
// value.
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

// Sets options of one handle, up to the first that libcurl refuses.
class EasyOptions {
 public:
  explicit EasyOptions(CURL* easy) : easy_(easy) {}
  template <class Value>
  void set(CURLoption option, Value value) {
    if (result_ == CURLE_OK) result_ = curl_easy_setopt(easy_, option, value);
  }
  CURLcode result() const { return result_; }

 private:
  CURL* const easy_;
  CURLcode result_ = CURLE_OK;
};

// Once for the process, before anything else of libcurl.
void initialiseCurl();

// The content encodings that this libcurl can decode, as "Accept-Encoding" has them.
std::string acceptEncoding();
// "HalvernApi/1.0.0 libcurl/7.88.1"
std::string userAgent();
// As libcurl numbers its versions: 0x075801 is 7.88.1.
unsigned curlVersion();
// An error when this libcurl does not use OpenSSL: others write session keys where SSLKEYLOGFILE says, and cannot tell
// why a certificate is refused.
std::optional<Foundation::Failure> tlsFault();

// The URL in parts; null when libcurl cannot make sense of it. `flags` are those of curl_url_set.
CurlUrl parseUrl(const std::string& url, unsigned flags = CURLU_PATH_AS_IS);
// A part of `url` without decoding, empty if it has none. `flags` are those of curl_url_get.
std::string urlPart(const CurlUrl& url, CURLUPart part, unsigned flags = CURLU_DEFAULT_PORT);

// A URL that libcurl has parsed, shared by all transfers to it: libcurl parses a URL that is given as text each time.
struct ParsedUrl {
  explicit ParsedUrl(std::string url);

  const std::string text;
  CurlUrl parts;  // null if transfers must use the text
};

// The platform's error for a transfer of `handle` that ended with `result`. A null handle is allowed.
Foundation::Failure failureOf(CURL* handle, CURLcode result);

}  // namespace HalvernApi::Alamofire
