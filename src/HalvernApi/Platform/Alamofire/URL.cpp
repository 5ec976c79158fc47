#include "HalvernApi/Platform/Alamofire/URL.hpp"

#include <algorithm>

#include "HalvernApi/Platform/Alamofire/Curl.hpp"
#include "HalvernApi/Platform/Foundation/Ascii.hpp"

namespace HalvernApi::Alamofire {

using Foundation::consistsOf;
using Foundation::equalIgnoringCase;

bool isUrlText(std::string_view text) { return consistsOf(text, "-._~:/?#[]@!$&'()*+,;=%"); }

std::string printableUrl(std::string_view url) {
  const std::size_t scheme = schemeOf(url).size();
  const std::size_t start = std::min(url.find_first_not_of('/', scheme == 0 ? 0 : scheme + 1), url.size());
  // libcurl takes everything up to the last "@" before the path as the user information.
  std::string_view authority = url.substr(start, url.find('/', start) - start);
  // An "@" in the query is ignored if the text before the query is a host, or a host with a numeric port.
  const std::string_view host = authority.substr(0, authority.find_first_of("?#"));
  const std::string_view port = host.substr(std::min(host.rfind(':'), host.size()));
  if (port.empty() || (port.size() > 1 && port.find_first_not_of("0123456789", 1) == std::string_view::npos))
    authority = host;
  const std::size_t at = authority.rfind('@');
  if (at == std::string_view::npos) return std::string(url);
  return std::string(url.substr(0, start)).append("<elided>").append(url.substr(start + at));
}

std::string_view schemeOf(std::string_view url) {
  const std::string_view scheme = url.substr(0, url.find(':'));
  return scheme.size() < url.size() && consistsOf(scheme, "+-.") ? scheme : std::string_view();
}

bool isHttps(std::string_view url) { return equalIgnoringCase(schemeOf(url), "https"); }

std::optional<Foundation::Failure> loadingFault(std::string_view url) {
  using Foundation::urlFailure;
  const std::string_view scheme = schemeOf(url);
  const bool secure = isHttps(url);
  if (!secure && !equalIgnoringCase(scheme, "http"))
    return urlFailure(Foundation::NSURLErrorUnsupportedURL, "The URL's scheme is neither http nor https.");
  url.remove_prefix(scheme.size() + 1);
  if (!url.starts_with("//") || url.find_first_of("/?#", 2) == 2 || url.size() == 2)
    return urlFailure(Foundation::NSURLErrorBadURL, "The URL names no host.");
  return secure ? tlsFault() : std::nullopt;
}

bool sameOrigin(const std::string& left, const std::string& right) {
  const CurlUrl a = parseUrl(left);
  const CurlUrl b = parseUrl(right);
  if (!a || !b) return false;
  const CURLUPart parts[] = {CURLUPART_SCHEME, CURLUPART_HOST, CURLUPART_PORT};
  return std::all_of(std::begin(parts), std::end(parts),
                     [&](CURLUPart part) { return equalIgnoringCase(urlPart(a, part), urlPart(b, part)); });
}

}  // namespace HalvernApi::Alamofire
