// What the fuzz targets share: the entry, and how a broken property ends the process. Included once a program.
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

// What a target is: aborts when an input breaks a property.
void check(std::string_view input);

}  // namespace HalvernApi::Fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  HalvernApi::Fuzz::check({reinterpret_cast<const char*>(bytes), size});
  return 0;
}
