// libcurl behind values that clean up after themselves; nothing else of the project names a type of it. Not installed.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "HalvernApi/Platform/Alamofire/URLRequest.hpp"
#include "HalvernApi/Platform/Foundation/NSError.hpp"
#include "HalvernApi/Platform/Foundation/URLSessionConfiguration.hpp"

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

// Once for the process, before anything else of libcurl; any thread.
void initialiseCurl();

// The URL in parts; null when libcurl cannot make sense of it.
CurlUrl parseUrl(const std::string& url);
// A part of `url`, the scheme's port where it names none; empty when it has no such part.
std::string urlPart(const CurlUrl& url, CURLUPart part);
bool sameOrigin(const std::string& left, const std::string& right);

// The header lines of a request as libcurl takes them, in two blocks of memory whatever their number. Does not move:
// the handle points into it.
class CurlHeaders {
 public:
  void assign(const HTTPHeaders& headers, bool withBody);
  curl_slist* list() { return nodes_.empty() ? nullptr : nodes_.data(); }

 private:
  std::vector<curl_slist> nodes_;
  std::string lines_;
};

// A handle with every setting that does not depend on the request; null when there is no memory.
CurlEasy makeEasy(const Foundation::URLSessionConfiguration& configuration);

// The platform's error for a transfer of `handle` that ended with `result`; `words` are libcurl's own, and may be
// empty.
Foundation::NSError errorOf(CURL* handle, CURLcode result, std::string_view words);

}  // namespace HalvernApi::Alamofire
