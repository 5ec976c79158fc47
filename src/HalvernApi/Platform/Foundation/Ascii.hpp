// Functions for ASCII text, such as header names and URLs. Any thread. Not installed.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace HalvernApi::Foundation {

constexpr char lowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

inline bool equalIgnoringCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() && std::equal(left.begin(), left.end(), right.begin(),
                                                   [](char a, char b) { return lowerCase(a) == lowerCase(b); });
}

// Whether `text` consists of ASCII letters, ASCII digits and `marks`.
inline bool consistsOf(std::string_view text, std::string_view marks) {
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

}  // namespace HalvernApi::Foundation
