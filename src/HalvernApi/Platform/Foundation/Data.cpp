#include "HalvernApi/Platform/Foundation/Data.hpp"

#include <utf8/checked.h>
#include <array>
#include <cstdint>
#include <cstring>
#include <span>

namespace HalvernApi::Foundation {
namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The value (0 to 63) of each character; -1 for characters outside the alphabet.
constexpr auto sixBits = [] {
  std::array<std::int32_t, 256> table{};
  table.fill(-1);
  for (std::int32_t bits = 0; const char c : alphabet) table[static_cast<unsigned char>(c)] = bits++;
  return table;
}();

}  // namespace

Data dataOf(std::string_view text) {
  const auto bytes = std::as_bytes(std::span<const char>(text));
  return {bytes.begin(), bytes.end()};
}

bool isUtf8(std::string_view text) {
  // Skips ASCII in steps of eight bytes first, because nearly every text is ASCII.
  constexpr std::uint64_t highBits = 0x8080808080808080;
  std::size_t ascii = 0;
  for (std::uint64_t word = 0; ascii + sizeof word <= text.size(); ascii += sizeof word) {
    std::memcpy(&word, text.data() + ascii, sizeof word);
    if ((word & highBits) != 0) break;
  }
  return utf8::is_valid(text.begin() + static_cast<std::ptrdiff_t>(ascii), text.end());
}

std::optional<Data> decodeBase64(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  if (text.empty()) return Data{};
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  Data data(text.size() / 4 * 3);
  std::byte* out = data.data();
  std::int32_t seen = 0;
  const auto decode = [&](const char* group) {
    const auto at = [group](std::size_t place) { return sixBits[static_cast<unsigned char>(group[place])]; };
    const std::int32_t bits = at(0) << 18 | at(1) << 12 | at(2) << 6 | at(3);
    seen |= bits;  // becomes negative at the first invalid character
    for (const int shift : {16, 8, 0}) *out++ = static_cast<std::byte>(bits >> shift);
  };
  const char* const last = text.data() + text.size() - 4;
  for (const char* group = text.data(); group != last; group += 4) decode(group);
  std::array<char, 4> tail{last[0], last[1], last[2], last[3]};
  for (std::size_t place = 4 - padding; place < 4; ++place) tail[place] = 'A';
  decode(tail.data());
  if (seen < 0) return std::nullopt;
  data.resize(data.size() - padding);
  return data;
}

}  // namespace HalvernApi::Foundation
