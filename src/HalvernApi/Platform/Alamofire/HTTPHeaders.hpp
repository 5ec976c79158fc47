// The headers of a request, in the order in which they were set; names compare without regard to case. A plain value.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi::Alamofire {

class HALVERNAPI_EXPORT HTTPHeaders {
 public:
  HTTPHeaders() = default;
  // A copy with room for `more` headers.
  HTTPHeaders(const HTTPHeaders& other, std::size_t more) {
    headers_.reserve(other.size() + more);
    headers_ = other.headers_;
  }
  HTTPHeaders(std::initializer_list<std::pair<std::string, std::string>> headers) : headers_(headers) {}

  // An absent value removes the header; an empty one is sent as a header without a value.
  void set(std::string_view name, std::optional<std::string> value);
  // Null when there is none.
  const std::string* find(std::string_view name) const;

  auto begin() const { return headers_.begin(); }
  auto end() const { return headers_.end(); }
  std::size_t size() const { return headers_.size(); }

 private:
  std::vector<std::pair<std::string, std::string>> headers_;
};

// ASCII only, as names in HTTP are.
HALVERNAPI_EXPORT bool equalIgnoringCase(std::string_view left, std::string_view right);

}  // namespace HalvernApi::Alamofire

namespace HalvernApi {
using Alamofire::HTTPHeaders;
}  // namespace HalvernApi
