#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi::Alamofire {

// The headers of a request, in the order in which they were set; names compare without regard to case. A plain value,
// in one block of memory, whose lines libcurl takes as they are.
class HALVERNAPI_EXPORT HTTPHeaders {
 public:
  // A name and its value. Valid until the headers change.
  struct Header {
    std::string_view name;   // begins the header's line, which ends with a NUL
    std::string_view value;  // may be empty
  };
  // \cond
  struct HALVERNAPI_EXPORT Iterator {
    const char* at;

    Header operator*() const;
    Iterator& operator++();
    friend bool operator==(Iterator, Iterator) = default;
  };
  // \endcond

  HTTPHeaders() = default;
  // As if each were set in turn.
  HTTPHeaders(std::initializer_list<Header> headers);
  // A copy with room for `more` bytes.
  HTTPHeaders(const HTTPHeaders& other, std::size_t more);

  // An absent value removes the header; one that is empty, or blank, is sent as a header without a value.
  void set(std::string_view name, std::optional<std::string_view> value);
  // The header's value, valid until the headers change; absent when there is no such header.
  std::optional<std::string_view> find(std::string_view name) const;

  // For `for (const auto& [name, value] : headers)`.
  Iterator begin() const { return {block_.data()}; }
  // Behind the last one.
  Iterator end() const { return {block_.data() + block_.size()}; }

 private:
  Iterator lineOf(std::string_view name) const;  // `end()` if there is none

  std::string block_;  // lines, each with a NUL at its end: "Name: value", or "Name;" without a value
};

// \cond
// What would break the header block or the framing of the message, in words; empty when nothing does.
std::string_view headerFault(const HTTPHeaders& headers);
// \endcond

}  // namespace HalvernApi::Alamofire
