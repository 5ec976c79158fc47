// What the fuzz targets share: the entry, how a broken property ends the process, and what the JSON parser is excused
// from. Included once a program.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace HalvernApi::Fuzz {

inline void require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", property);
  std::abort();
}

// Boost.JSON 1.81 reads a number of up to 15 digits exactly, a longer one to within a few units in the last place, and
// the largest double as infinity.
inline bool hasLongNumber(std::string_view json) {
  const auto digit = [](char c, int) { return c == '.' || (c >= '0' && c <= '9'); };
  return std::search_n(json.begin(), json.end(), 17, 0, digit) != json.end();
}

// What a target is: aborts when an input breaks a property.
void check(std::string_view input);

}  // namespace HalvernApi::Fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  HalvernApi::Fuzz::check({reinterpret_cast<const char*>(bytes), size});
  return 0;
}
