#include "HalvernApi/Platform/Alamofire/HeaderFault.hpp"

#include <algorithm>
#include <array>

#include "HalvernApi/Platform/Alamofire/CharacterSet.hpp"
#include "HalvernApi/Platform/Foundation/Data.hpp"

namespace HalvernApi::Alamofire {

std::string_view headerFault(const HTTPHeaders& headers) {
  static constexpr CharacterSet token("!#$%&'*+-.^_`|~");
  const auto isControl = [](char c) { return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f; };
  constexpr std::array<std::string_view, 3> framing = {"Content-Length", "Transfer-Encoding", "Expect"};
  for (const auto& [name, value] : headers) {
    if (name.empty() || !token.containsAll(name)) return "A header's name is not a token.";
    if (std::any_of(value.begin(), value.end(), isControl)) return "A header's value holds a control character.";
    if (!Foundation::isUtf8(value)) return "A header's value is not UTF-8.";
    if (std::any_of(framing.begin(), framing.end(),
                    [&name = name](std::string_view known) { return equalIgnoringCase(known, name); }))
      return "A header that frames the message is the session's to set.";
  }
  return {};
}

}  // namespace HalvernApi::Alamofire
