#include "HalvernApi/Platform/Alamofire/URL.hpp"

#include "HalvernApi/Platform/Alamofire/CharacterSet.hpp"

namespace HalvernApi::Alamofire {

bool isUrlText(std::string_view text) {
  static constexpr CharacterSet allowed("-._~:/?#[]@!$&'()*+,;=%");
  return allowed.containsAll(text);
}

std::string printableUrl(std::string_view url) {
  std::string text(url);
  const std::size_t scheme = schemeOf(url).size();
  const std::size_t authority = std::min(url.find_first_not_of('/', scheme == 0 ? 0 : scheme + 1), url.size());
  const std::string_view host = url.substr(authority, url.find_first_of("/?#", authority) - authority);
  if (const std::size_t at = host.rfind('@'); at != std::string_view::npos) text.replace(authority, at, "<elided>");
  return text;
}

std::string_view schemeOf(std::string_view url) {
  static constexpr CharacterSet allowed("+-.");
  const std::size_t colon = url.find(':');
  const bool hasScheme = colon != std::string_view::npos && allowed.containsAll(url.substr(0, colon));
  return hasScheme ? url.substr(0, colon) : std::string_view();
}

}  // namespace HalvernApi::Alamofire
