// The headers of a request, in the order in which they were set; names compare without regard to case. A plain value,
// in one block of memory, whose lines libcurl takes as they are.
#pragma once

#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi::Alamofire {

class HALVERNAPI_EXPORT HTTPHeaders {
 public:
  // Name and value; valid until the headers change.
  using Header = std::pair<std::string_view, std::string_view>;

  class HALVERNAPI_EXPORT Iterator {
   public:
    using value_type = Header;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    explicit Iterator(const char* at) : at_(at) {}
    Header operator*() const;
    // "Name: value", or "Name;" where there is no value, ended by a NUL.
    const char* line() const;
    Iterator& operator++();
    Iterator operator++(int) { return std::exchange(*this, std::next(*this)); }
    const char* position() const { return at_; }
    friend bool operator==(Iterator, Iterator) = default;

   private:
    const char* at_ = nullptr;
  };

  HTTPHeaders() = default;
  HTTPHeaders(std::initializer_list<Header> headers);
  // A copy with room for `more` bytes.
  HTTPHeaders(const HTTPHeaders& other, std::size_t more);

  // An absent value removes the header; one that is empty, or blank, is sent as a header without a value.
  void set(std::string_view name, std::optional<std::string_view> value);
  std::optional<std::string_view> find(std::string_view name) const;

  Iterator begin() const { return Iterator(block_.data()); }
  Iterator end() const { return Iterator(block_.data() + block_.size()); }

 private:
  std::string block_;
};

// ASCII only, as names in HTTP are.
HALVERNAPI_EXPORT bool equalIgnoringCase(std::string_view left, std::string_view right);

}  // namespace HalvernApi::Alamofire

namespace HalvernApi {
using Alamofire::HTTPHeaders;
}  // namespace HalvernApi
