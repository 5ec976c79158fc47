#include "HalvernApi/Platform/Alamofire/HTTPHeaders.hpp"

#include <algorithm>

namespace HalvernApi::Alamofire {
namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

// In front of each header's line. Two characters stand between name and value, and a NUL behind the value.
struct Lengths {
  std::size_t name;
  std::size_t value;

  static Lengths at(const char* position) {
    Lengths lengths{};
    std::memcpy(&lengths, position, sizeof lengths);
    return lengths;
  }
  std::size_t total() const { return sizeof *this + name + 2 + value + 1; }
};

auto named(std::string_view name) {
  return [name](const HTTPHeaders::Header& header) { return equalIgnoringCase(header.first, name); };
}

}  // namespace

bool equalIgnoringCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() &&
         std::equal(left.begin(), left.end(), right.begin(), [](char a, char b) { return lower(a) == lower(b); });
}

HTTPHeaders::Header HTTPHeaders::Iterator::operator*() const {
  const Lengths lengths = Lengths::at(at_);
  return {{line(), lengths.name}, {line() + lengths.name + 2, lengths.value}};
}
const char* HTTPHeaders::Iterator::line() const { return at_ + sizeof(Lengths); }
HTTPHeaders::Iterator& HTTPHeaders::Iterator::operator++() {
  at_ += Lengths::at(at_).total();
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
  if (const auto found = std::find_if(begin(), end(), named(name)); found != end())
    block_.erase(static_cast<std::size_t>(found.position() - block_.data()), Lengths::at(found.position()).total());
  if (!value) return;
  const bool blank = value->find_first_not_of(" \t") == std::string_view::npos;
  const Lengths lengths{name.size(), blank ? 0 : value->size()};
  block_.reserve(block_.size() + lengths.total());
  block_.append(reinterpret_cast<const char*>(&lengths), sizeof lengths).append(name);
  block_.append(blank ? std::string_view(";\0", 2) : ": ").append(value->substr(0, lengths.value)) += '\0';
}

std::optional<std::string_view> HTTPHeaders::find(std::string_view name) const {
  const auto found = std::find_if(begin(), end(), named(name));
  return found == end() ? std::nullopt : std::optional((*found).second);
}

}  // namespace HalvernApi::Alamofire
