#include "HalvernApi/Platform/Alamofire/HTTPHeaders.hpp"

#include <algorithm>
#include <array>
#include <cstring>

#include "HalvernApi/Platform/Foundation/Data.hpp"

namespace HalvernApi::Alamofire {
namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

// In front of each header's line. Two characters stand between name and value, and a NUL behind the value.
struct Lengths {
  std::size_t name;
  std::size_t value;
};

}  // namespace

bool equalIgnoringCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() &&
         std::equal(left.begin(), left.end(), right.begin(), [](char a, char b) { return lower(a) == lower(b); });
}

bool consistsOf(std::string_view text, std::string_view marks) {
  static constexpr auto isLetterOrDigit = [] {
    std::array<bool, 256> table{};
    for (const char c : std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"))
      table[static_cast<unsigned char>(c)] = true;
    return table;
  }();
  return std::all_of(text.begin(), text.end(), [marks](char c) {
    return isLetterOrDigit[static_cast<unsigned char>(c)] || marks.find(c) != std::string_view::npos;
  });
}

HTTPHeaders::Header HTTPHeaders::Iterator::operator*() const {
  Lengths lengths;
  std::memcpy(&lengths, at, sizeof lengths);
  const char* const line = at + sizeof lengths;
  return {{line, lengths.name}, {line + lengths.name + 2, lengths.value}};
}

HTTPHeaders::Iterator& HTTPHeaders::Iterator::operator++() {
  const std::string_view value = (**this).value;
  at = value.data() + value.size() + 1;
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
  Iterator old = begin();
  while (old != end() && !equalIgnoringCase((*old).name, name)) ++old;
  if (old != end()) {
    const char* const start = old.at;
    block_.erase(static_cast<std::size_t>(start - block_.data()), static_cast<std::size_t>((++old).at - start));
  }
  if (!value) return;
  const bool blank = value->find_first_not_of(" \t") == std::string_view::npos;
  const Lengths lengths{name.size(), blank ? 0 : value->size()};
  block_.reserve(block_.size() + sizeof lengths + lengths.name + 2 + lengths.value + 1);
  block_.append(reinterpret_cast<const char*>(&lengths), sizeof lengths).append(name);
  block_.append(blank ? std::string_view(";\0", 2) : ": ").append(value->substr(0, lengths.value)) += '\0';
}

std::optional<std::string_view> HTTPHeaders::find(std::string_view name) const {
  for (const Header& header : *this)
    if (equalIgnoringCase(header.name, name)) return header.value;
  return std::nullopt;
}

std::string_view headerFault(const HTTPHeaders& headers) {
  for (const auto& [name, value] : headers) {
    if (name.empty() || !consistsOf(name, "!#$%&'*+-.^_`|~")) return "A header's name is not a token.";
    const auto isControl = [](unsigned char c) { return (c < 0x20 && c != '\t') || c == 0x7f; };
    const auto isPrintable = [](unsigned char c) { return c >= 0x20 && c < 0x7f; };
    if (!std::all_of(value.begin(), value.end(), isPrintable)) {  // as nearly every value is
      if (std::any_of(value.begin(), value.end(), isControl)) return "A header's value holds a control character.";
      if (!Foundation::isUtf8(value)) return "A header's value is not UTF-8.";
    }
    for (const char* framing : {"Content-Length", "Transfer-Encoding", "Expect"})
      if (equalIgnoringCase(framing, name)) return "A header that frames the message is the session's to set.";
  }
  return {};
}

}  // namespace HalvernApi::Alamofire
