#include "HalvernApi/Platform/Alamofire/Curl.hpp"

#include <openssl/ssl.h>

#include <cerrno>

#include "HalvernApi/Platform/Alamofire/Timing.hpp"

namespace HalvernApi::Alamofire {

using Foundation::NSError;

void initialiseCurl() { [[maybe_unused]] static const CURLcode done = curl_global_init(CURL_GLOBAL_DEFAULT); }

CurlUrl parseUrl(const std::string& url) {
  CurlUrl parts(curl_url());
  if (!parts || curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), CURLU_PATH_AS_IS) != CURLUE_OK) return nullptr;
  return parts;
}

std::string urlPart(const CurlUrl& url, CURLUPart part) {
  char* text = nullptr;
  if (!url || curl_url_get(url.get(), part, &text, CURLU_DEFAULT_PORT | CURLU_URLDECODE) != CURLUE_OK) return {};
  const std::unique_ptr<char, CurlCleanup<curl_free>> owned(text);
  return text;
}

bool sameOrigin(const std::string& left, const std::string& right) {
  const CurlUrl a = parseUrl(left);
  const CurlUrl b = parseUrl(right);
  if (!a || !b) return false;
  for (const CURLUPart part : {CURLUPART_SCHEME, CURLUPART_HOST, CURLUPART_PORT})
    if (!equalIgnoringCase(urlPart(a, part), urlPart(b, part))) return false;
  return true;
}

void CurlHeaders::assign(const HTTPHeaders& headers, bool withBody) {
  nodes_.clear();
  lines_.clear();
  std::size_t room = 64;
  for (const auto& [name, value] : headers) room += name.size() + value.size() + 3;
  lines_.reserve(room);  // the nodes point into it
  nodes_.reserve(headers.size() + 2);
  const auto add = [this](std::string_view name, std::string_view separator, std::string_view value) {
    char* const line = lines_.data() + lines_.size();
    ((lines_ += name) += separator) += value;
    lines_ += '\0';
    nodes_.push_back({line, nullptr});
    if (nodes_.size() > 1) nodes_[nodes_.size() - 2].next = &nodes_.back();
  };
  for (const auto& [name, value] : headers) {
    if (!withBody && equalIgnoringCase(name, "Content-Type")) continue;
    const bool blank = value.find_first_not_of(" \t") == std::string::npos;
    // libcurl takes a semicolon for a header without a value, and leaves out one that has nothing behind its colon.
    blank ? add(name, ";", "") : add(name, ": ", value);
  }
  if (headers.find("Content-Type") == nullptr || !withBody) add("Content-Type", ":", "");  // suppresses libcurl's own
  add("Expect", ":", "");
}

namespace {

// Never write session keys where SSLKEYLOGFILE says.
CURLcode withoutKeyLog(CURL*, void* context, void*) {
  SSL_CTX_set_keylog_callback(static_cast<SSL_CTX*>(context), nullptr);
  return CURLE_OK;
}

bool usesOpenSsl() {
  const std::string_view library = curl_version_info(CURLVERSION_NOW)->ssl_version;
  return library.starts_with("OpenSSL");
}

// A proxy is set in parts, so that libcurl's error messages, which quote it, never hold its password.
void setProxy(CURL* handle, const std::string& proxyUrl) {
  const CurlUrl url(curl_url());
  const auto flags = CURLU_NON_SUPPORT_SCHEME | CURLU_GUESS_SCHEME;
  if (!url || curl_url_set(url.get(), CURLUPART_URL, proxyUrl.c_str(), flags) != CURLUE_OK) {
    curl_easy_setopt(handle, CURLOPT_PROXY, "http://proxy.invalid");  // fails every request, rather than go around it
    return;
  }
  if (const std::string user = urlPart(url, CURLUPART_USER); !user.empty())
    curl_easy_setopt(handle, CURLOPT_PROXYUSERNAME, user.c_str());
  if (const std::string password = urlPart(url, CURLUPART_PASSWORD); !password.empty())
    curl_easy_setopt(handle, CURLOPT_PROXYPASSWORD, password.c_str());
  curl_url_set(url.get(), CURLUPART_USER, nullptr, 0);
  curl_url_set(url.get(), CURLUPART_PASSWORD, nullptr, 0);
  curl_easy_setopt(handle, CURLOPT_PROXY, urlPart(url, CURLUPART_URL).c_str());
}

}  // namespace

CurlEasy makeEasy(const Foundation::URLSessionConfiguration& configuration) {
  CurlEasy easy(curl_easy_init());
  CURL* const handle = easy.get();
  if (handle == nullptr) return easy;
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(handle, CURLOPT_ACCEPT_ENCODING, "");  // decode all that this libcurl can
  curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);  // do not wait for a name that is being looked up
  curl_easy_setopt(handle, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  // Names with several addresses: libcurl leaves each a share of this.
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS,
                   static_cast<long>(std::max(bounded(configuration.timeoutIntervalForRequest).count(),
                                              std::chrono::milliseconds::rep{1})));
  curl_easy_setopt(handle, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(configuration.maximumResponseSize));
  curl_easy_setopt(handle, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  if (usesOpenSsl()) curl_easy_setopt(handle, CURLOPT_SSL_CTX_FUNCTION, withoutKeyLog);
  if (configuration.certificateAuthorityFile) {
    curl_easy_setopt(handle, CURLOPT_CAINFO, configuration.certificateAuthorityFile->c_str());
    curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr);
  }
  curl_easy_setopt(handle, CURLOPT_NOPROXY, "");
  curl_easy_setopt(handle, CURLOPT_PROXY, "");  // none, rather than the environment's
  if (configuration.proxyUrl) setProxy(handle, *configuration.proxyUrl);
  return easy;
}

namespace {

int numberOf(CURL* handle, CURLcode result) {
  switch (result) {
    case CURLE_URL_MALFORMAT: return Foundation::NSURLErrorBadURL;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY: return Foundation::NSURLErrorCannotFindHost;
    case CURLE_COULDNT_CONNECT: return Foundation::NSURLErrorCannotConnectToHost;
    case CURLE_OPERATION_TIMEDOUT: return Foundation::NSURLErrorTimedOut;
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM: return Foundation::NSURLErrorNetworkConnectionLost;
    case CURLE_UNSUPPORTED_PROTOCOL:  // an answer that is not HTTP/1 or later: schemes were looked at before
    case CURLE_WEIRD_SERVER_REPLY: return Foundation::NSURLErrorBadServerResponse;
    case CURLE_BAD_CONTENT_ENCODING: return Foundation::NSURLErrorCannotDecodeContentData;
    case CURLE_FILESIZE_EXCEEDED: return Foundation::NSURLErrorDataLengthExceedsMaximum;
    case CURLE_PEER_FAILED_VERIFICATION: {
      long verdict = X509_V_OK;
      curl_easy_getinfo(handle, CURLINFO_SSL_VERIFYRESULT, &verdict);
      if (verdict == X509_V_ERR_CERT_HAS_EXPIRED) return Foundation::NSURLErrorServerCertificateHasBadDate;
      if (verdict == X509_V_ERR_CERT_NOT_YET_VALID) return Foundation::NSURLErrorServerCertificateNotYetValid;
      return Foundation::NSURLErrorServerCertificateUntrusted;
    }
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_USE_SSL_FAILED: return Foundation::NSURLErrorSecureConnectionFailed;
    default: return Foundation::NSURLErrorUnknown;
  }
}

}  // namespace

NSError errorOf(CURL* handle, CURLcode result, std::string_view words) {
  if (words.empty()) words = curl_easy_strerror(result);
  if (result == CURLE_OUT_OF_MEMORY) return {std::string(Foundation::NSPOSIXErrorDomain), ENOMEM, std::string(words)};
  return {std::string(Foundation::NSURLErrorDomain), numberOf(handle, result), std::string(words)};
}

}  // namespace HalvernApi::Alamofire
