#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi::Alamofire {

// The headers of a request, in the order in which they were set. Names are compared without regard to case. A plain
// value: any thread.
class HALVERNAPI_EXPORT HTTPHeaders {
 public:
  // One header. Its texts are valid until the headers are changed or destroyed.
  struct Header {
    std::string_view name;
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
  // Calls `set` for each header in turn.
  HTTPHeaders(std::initializer_list<Header> headers);
  // A copy with `more` bytes of memory reserved.
  HTTPHeaders(const HTTPHeaders& other, std::size_t more);

  // Sets the header and moves it to the end. An absent value removes the header. With an empty or blank value, the
  // header is sent without a value.
  void set(std::string_view name, std::optional<std::string_view> value);
  // The header's value, valid until the headers are changed. Absent if there is no such header.
  std::optional<std::string_view> find(std::string_view name) const;

  // These allow `for (const auto& [name, value] : headers)`.
  Iterator begin() const { return {block_.data()}; }
  Iterator end() const { return {block_.data() + block_.size()}; }

 private:
  Iterator lineOf(std::string_view name) const;  // `end()` if there is none

  std::string block_;  // lines, each with a NUL at its end: "Name: value", or "Name;" without a value
};

// \cond
// Returns a sentence about the first header that would break the header block or the framing of the message. Empty if
// all headers are valid.
std::string_view headerFault(const HTTPHeaders& headers);
// \endcond

}  // namespace HalvernApi::Alamofire
