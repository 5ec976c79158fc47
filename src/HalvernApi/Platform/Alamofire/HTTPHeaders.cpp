#include "HalvernApi/Platform/Alamofire/HTTPHeaders.hpp"

#include <algorithm>

namespace HalvernApi::Alamofire {
namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

auto named(std::string_view name) {
  return [name](const auto& header) { return equalIgnoringCase(header.first, name); };
}

}  // namespace

bool equalIgnoringCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() &&
         std::equal(left.begin(), left.end(), right.begin(), [](char a, char b) { return lower(a) == lower(b); });
}

void HTTPHeaders::set(std::string_view name, std::optional<std::string> value) {
  const auto found = std::find_if(headers_.begin(), headers_.end(), named(name));
  if (!value) {
    if (found != headers_.end()) headers_.erase(found);
  } else if (found != headers_.end()) {
    found->second = *std::move(value);
  } else {
    headers_.emplace_back(name, *std::move(value));
  }
}

const std::string* HTTPHeaders::find(std::string_view name) const {
  const auto found = std::find_if(headers_.begin(), headers_.end(), named(name));
  return found == headers_.end() ? nullptr : &found->second;
}

}  // namespace HalvernApi::Alamofire
