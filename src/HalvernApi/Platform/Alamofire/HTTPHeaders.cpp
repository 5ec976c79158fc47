#include "HalvernApi/Platform/Alamofire/HTTPHeaders.hpp"

#include <algorithm>
#include <cstring>

#include "HalvernApi/Platform/Foundation/Ascii.hpp"
#include "HalvernApi/Platform/Foundation/Data.hpp"

namespace HalvernApi::Alamofire {

using Foundation::consistsOf;
using Foundation::equalIgnoringCase;

namespace {

// Replaces every `separator` after `start` by a character that `headerFault` rejects. The separator would end a name or
// a line too early.
void replace(std::string& block, std::size_t start, char separator) {
  std::replace(block.begin() + static_cast<std::ptrdiff_t>(start), block.end(), separator, '\1');
}

}  // namespace

HTTPHeaders::Header HTTPHeaders::Iterator::operator*() const {
  if (const char* const colon = std::strchr(at, ':')) return {{at, static_cast<std::size_t>(colon - at)}, colon + 2};
  const std::string_view line(at);  // "Name;"
  return {line.substr(0, line.size() - 1), ""};
}

HTTPHeaders::Iterator& HTTPHeaders::Iterator::operator++() {
  at += std::strlen(at) + 1;
  return *this;
}

HTTPHeaders::HTTPHeaders(std::initializer_list<Header> headers) {
  for (const auto& [name, value] : headers) set(name, value);
}

HTTPHeaders::HTTPHeaders(const HTTPHeaders& other, std::size_t more) {
  block_.reserve(other.block_.size() + more);
  block_ = other.block_;
}

void HTTPHeaders::set(std::string_view name, std::optional<std::string_view> value) {
  if (const Iterator old = lineOf(name); old != end())
    block_.erase(static_cast<std::size_t>(old.at - block_.data()), std::strlen(old.at) + 1);
  if (!value) return;
  const bool blank = value->find_first_not_of(" \t") == std::string_view::npos;
  const std::size_t start = block_.size();
  block_.reserve(start + name.size() + 2 + value->size() + 1);
  block_ += name;
  replace(block_, start, ':');
  block_ += blank ? ";" : ": ";
  if (!blank) block_ += *value;
  replace(block_, start, '\0');
  block_ += '\0';
}

std::optional<std::string_view> HTTPHeaders::find(std::string_view name) const {
  const Iterator line = lineOf(name);
  return line != end() ? std::optional((*line).value) : std::nullopt;
}

HTTPHeaders::Iterator HTTPHeaders::lineOf(std::string_view name) const {
  const auto hasName = [&](Iterator line) {
    const std::string_view rest(line.at, static_cast<std::size_t>(end().at - line.at));
    const std::string_view after = rest.substr(std::min(name.size(), rest.size()), 2);
    return (after.starts_with(':') || after == std::string_view(";\0", 2)) &&
           equalIgnoringCase(rest.substr(0, name.size()), name);
  };
  Iterator line = begin();
  while (line != end() && !hasName(line)) ++line;
  return line;
}

std::string_view headerFault(const HTTPHeaders& headers) {
  for (const auto& [name, value] : headers) {
    if (name.empty() || !consistsOf(name, "!#$%&'*+-.^_`|~")) return "A header's name is not a token.";
    const auto isControl = [](unsigned char c) { return (c < 0x20 && c != '\t') || c == 0x7f; };
    const auto isPrintable = [](unsigned char c) { return c >= 0x20 && c < 0x7f; };
    if (!std::all_of(value.begin(), value.end(), isPrintable)) {  // false for nearly all values
      if (std::any_of(value.begin(), value.end(), isControl)) return "A header's value holds a control character.";
      if (!Foundation::isUtf8(value)) return "A header's value is not UTF-8.";
    }
    for (const char* framing : {"Content-Length", "Transfer-Encoding", "Expect"})
      if (equalIgnoringCase(framing, name)) return "The session itself sets the headers that frame the message.";
  }
  return {};
}

}  // namespace HalvernApi::Alamofire
