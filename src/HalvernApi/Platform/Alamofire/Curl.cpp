#include "HalvernApi/Platform/Alamofire/Curl.hpp"

#include <openssl/x509_vfy.h>

#include <new>

#include "HalvernApi/Platform/Foundation/Ascii.hpp"

namespace HalvernApi::Alamofire {

using Foundation::Failure;
using Foundation::urlFailure;

void initialiseCurl() {
  [[maybe_unused]] static const bool done = [] {
    if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) throw std::bad_alloc();  // the next call tries again
    return true;
  }();
}

std::string acceptEncoding() {
  initialiseCurl();
  const curl_version_info_data& libcurl = *curl_version_info(CURLVERSION_NOW);
  std::string list;
  for (const auto& [feature, names] : {std::pair{CURL_VERSION_LIBZ, "deflate, gzip"},
                                       std::pair{CURL_VERSION_BROTLI, "br"}, std::pair{CURL_VERSION_ZSTD, "zstd"}}) {
    if ((libcurl.features & feature) == 0) continue;
    if (!list.empty()) list += ", ";
    list += names;
  }
  return list.empty() ? "identity" : list;
}

std::string userAgent() {
  initialiseCurl();
  return std::string("HalvernApi/" HALVERNAPI_VERSION " libcurl/") + curl_version_info(CURLVERSION_NOW)->version;
}

unsigned curlVersion() {
  static const unsigned version = curl_version_info(CURLVERSION_NOW)->version_num;
  return version;
}

std::optional<Failure> tlsFault() {
  static const bool usesOpenSsl = [] {
    const char* const library = curl_version_info(CURLVERSION_NOW)->ssl_version;
    return library != nullptr && std::string_view(library).starts_with("OpenSSL");
  }();
  if (usesOpenSsl) return std::nullopt;
  return urlFailure(Foundation::NSURLErrorSecureConnectionFailed, "This libcurl does not use OpenSSL for TLS.");
}

CurlUrl parseUrl(const std::string& url, unsigned flags) {
  CurlUrl parts(curl_url());
  const CURLUcode result =
      parts ? curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), flags) : CURLUcode{CURLUE_OUT_OF_MEMORY};
  // libcurl accepts any login. It reports a bad one only if memory runs out while it reads the login.
  if (result == CURLUE_OUT_OF_MEMORY || result == CURLUE_BAD_LOGIN) throw std::bad_alloc();
  return result == CURLUE_OK ? std::move(parts) : nullptr;
}

std::string urlPart(const CurlUrl& url, CURLUPart part, unsigned flags) {
  if (!url) return {};
  char* text = nullptr;
  const CURLUcode result = curl_url_get(url.get(), part, &text, flags);
  const std::unique_ptr<char, CurlCleanup<curl_free>> owned(text);
  if (result == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
  return result == CURLUE_OK ? text : "";
}

ParsedUrl::ParsedUrl(std::string url) : text(std::move(url)), parts(parseUrl(text)) {
  constexpr std::size_t longestName = 253;  // RFC 1035, 2.3.4
  const std::string host = urlPart(parts, CURLUPART_HOST);
  const bool isUsual = host.size() <= longestName && Foundation::consistsOf(host, ".-_[:]");
  // Some versions of libcurl do not copy the zone of an IPv6 address. If a host is unusual, libcurl reports what is
  // wrong with it only for a URL that is given as text.
  if (!isUsual || !urlPart(parts, CURLUPART_ZONEID).empty()) parts = nullptr;
}

namespace {

Foundation::NSURLError numberOf(CURL* handle, CURLcode result) {
  switch (result) {
    case CURLE_URL_MALFORMAT: return Foundation::NSURLErrorBadURL;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY: return Foundation::NSURLErrorCannotFindHost;
    case CURLE_PROXY:
    case CURLE_COULDNT_CONNECT: return Foundation::NSURLErrorCannotConnectToHost;
    case CURLE_OPERATION_TIMEDOUT: return Foundation::NSURLErrorTimedOut;
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR: return Foundation::NSURLErrorNetworkConnectionLost;
    case CURLE_UNSUPPORTED_PROTOCOL:  // no status line of HTTP/1 or later; the URL's scheme has been checked before
#if LIBCURL_VERSION_NUM >= 0x080600
    case CURLE_TOO_LARGE:  // the headers of the answer are too large
#endif
    case CURLE_WEIRD_SERVER_REPLY: return Foundation::NSURLErrorBadServerResponse;
    case CURLE_WRITE_ERROR:  // a decoder of libcurl failed; if a callback failed, `failure` is already set
    case CURLE_BAD_CONTENT_ENCODING: return Foundation::NSURLErrorCannotDecodeContentData;
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH: return Foundation::NSURLErrorServerCertificateUntrusted;
    case CURLE_PEER_FAILED_VERIFICATION: {
      long verdict = X509_V_OK;
      curl_easy_getinfo(handle, CURLINFO_SSL_VERIFYRESULT, &verdict);
      if (verdict == X509_V_OK) curl_easy_getinfo(handle, CURLINFO_PROXY_SSL_VERIFYRESULT, &verdict);
      if (verdict == X509_V_ERR_CERT_HAS_EXPIRED) return Foundation::NSURLErrorServerCertificateHasBadDate;
      if (verdict == X509_V_ERR_CERT_NOT_YET_VALID) return Foundation::NSURLErrorServerCertificateNotYetValid;
      return Foundation::NSURLErrorServerCertificateUntrusted;
    }
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CLIENTCERT: return Foundation::NSURLErrorSecureConnectionFailed;
    default: return Foundation::NSURLErrorUnknown;
  }
}

}  // namespace

Failure failureOf(CURL* handle, CURLcode result) {
  if (result == CURLE_OUT_OF_MEMORY) return Foundation::outOfMemory;
  return urlFailure(numberOf(handle, result), curl_easy_strerror(result));
}

}  // namespace HalvernApi::Alamofire
