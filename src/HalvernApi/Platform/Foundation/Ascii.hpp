// Functions for ASCII text, such as names in HTTP and in URLs. Any thread. Not installed.
#pragma once

#include <string_view>

namespace HalvernApi::Foundation {

bool equalIgnoringCase(std::string_view left, std::string_view right);

// Whether `text` consists of ASCII letters, ASCII digits and `marks`.
bool consistsOf(std::string_view text, std::string_view marks);

}  // namespace HalvernApi::Foundation
