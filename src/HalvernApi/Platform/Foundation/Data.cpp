#include "HalvernApi/Platform/Foundation/Data.hpp"

#include <utf8/checked.h>
#include <array>
#include <cstdint>
#include <cstring>

namespace HalvernApi::Foundation {
namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint32_t invalid = 0x80000000;

using Table = std::array<std::uint32_t, 256>;

// One table for each place of a character in its group of four: its six bits, already where they belong in the group.
constexpr std::array<Table, 4> tables = [] {
  std::array<Table, 4> result{};
  for (Table& table : result) table.fill(invalid);
  for (std::uint32_t value = 0; value < alphabet.size(); ++value)
    for (std::uint32_t place = 0; place < 4; ++place)
      result[place][static_cast<unsigned char>(alphabet[value])] = value << (18 - 6 * place);
  return result;
}();

std::uint32_t group(const char* text) {
  const auto at = [text](std::size_t place) { return tables[place][static_cast<unsigned char>(text[place])]; };
  return at(0) | at(1) | at(2) | at(3);
}

void store(std::byte* out, std::uint32_t bits) {
  out[0] = static_cast<std::byte>(bits >> 16);
  out[1] = static_cast<std::byte>(bits >> 8);
  out[2] = static_cast<std::byte>(bits);
}

}  // namespace

bool isUtf8(std::string_view text) {
  // Whole words of ASCII first: that is what nearly every text consists of.
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
  const char* in = text.data();
  const char* const last = text.data() + text.size() - 4;
  std::uint32_t seen = 0;
  for (; in != last; in += 4, out += 3) {
    const std::uint32_t bits = group(in);
    seen |= bits;
    store(out, bits);
  }
  std::array<char, 4> tail{last[0], last[1], last[2], last[3]};
  for (std::size_t place = 4 - padding; place < 4; ++place) tail[place] = 'A';
  const std::uint32_t bits = group(tail.data());
  store(out, bits);
  if (((seen | bits) & invalid) != 0) return std::nullopt;
  data.resize(data.size() - padding);
  return data;
}

}  // namespace HalvernApi::Foundation
