#include "HalvernApi/Platform/Alamofire/URL.hpp"

#include <algorithm>

namespace HalvernApi::Alamofire {
namespace {

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

bool isUrlText(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) {
    constexpr std::string_view marks = "-._~:/?#[]@!$&'()*+,;=%";
    return isLetter(c) || isDigit(c) || marks.find(c) != std::string_view::npos;
  });
}

std::string printableUrl(std::string_view url) {
  std::string text(url);
  const std::size_t start = url.find("//");
  if (start == std::string_view::npos) return text;
  const std::size_t authority = start + 2;
  const std::string_view host = url.substr(authority, url.find_first_of("/?#", authority) - authority);
  const std::size_t at = host.rfind('@');
  const std::size_t colon = host.find(':');
  if (at != std::string_view::npos && colon < at) text.replace(authority + colon + 1, at - colon - 1, "<elided>");
  return text;
}

std::string_view schemeOf(std::string_view url) {
  const std::size_t colon = url.find(':');
  if (colon == std::string_view::npos || colon == 0 || !isLetter(url.front())) return {};
  const std::string_view scheme = url.substr(0, colon);
  const bool wellFormed = std::all_of(scheme.begin(), scheme.end(), [](char c) {
    return isLetter(c) || isDigit(c) || c == '+' || c == '-' || c == '.';
  });
  return wellFormed ? scheme : std::string_view();
}

}  // namespace HalvernApi::Alamofire
