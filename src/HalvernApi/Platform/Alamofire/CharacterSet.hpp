// The letters and digits of ASCII and some marks: what a piece of protocol text may consist of. Any thread. Not
// installed.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace HalvernApi::Alamofire {

class CharacterSet {
 public:
  explicit constexpr CharacterSet(std::string_view marks) {
    for (char c = 'a'; c <= 'z'; ++c) add(c);
    for (char c = 'A'; c <= 'Z'; ++c) add(c);
    for (char c = '0'; c <= '9'; ++c) add(c);
    for (const char c : marks) add(c);
  }

  constexpr bool containsAll(std::string_view text) const {
    return std::all_of(text.begin(), text.end(), [this](char c) { return members_[static_cast<unsigned char>(c)]; });
  }

 private:
  constexpr void add(char c) { members_[static_cast<unsigned char>(c)] = true; }

  std::array<bool, 256> members_{};
};

}  // namespace HalvernApi::Alamofire
