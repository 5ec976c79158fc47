// Bytes as Base64 text, read by the library and by a plain reading of the rules; and bytes that OpenSSL wrote as
// Base64, which read back as themselves.
#include <openssl/evp.h>

#include <string>

#include "HalvernApi/Platform/Foundation/Data.hpp"
#include "Support.hpp"

namespace HalvernApi::Fuzz {
namespace {

// Bit by bit: six for each character, of which every full eight are a byte.
std::optional<std::string> read(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  for (int padding = 0; padding < 2 && text.ends_with('='); ++padding) text.remove_suffix(1);
  std::string bytes(text.size() * 6 / 8, '\0');
  for (std::size_t bit = 0; bit < text.size() * 6; ++bit) {
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::size_t value = alphabet.find(text[bit / 6]);
    if (value == std::string_view::npos) return std::nullopt;
    if (bit / 8 < bytes.size()) bytes[bit / 8] |= static_cast<char>((value >> (5 - bit % 6) & 1) << (7 - bit % 8));
  }
  return bytes;
}

}  // namespace

void check(std::string_view input) {
  const auto data = Foundation::decodeBase64(input);
  const auto expected = read(input);
  require(data.has_value() == expected.has_value(), "the text is Base64 or is not");
  require(!data || Foundation::textOf(*data) == *expected, "the text stands for these bytes");
  std::string written(input.size() * 2 + 4, '\0');
  const int size =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(written.data()),
                      reinterpret_cast<const unsigned char*>(input.data()), static_cast<int>(input.size()));
  const auto back = Foundation::decodeBase64({written.data(), static_cast<std::size_t>(size)});
  require(back && Foundation::textOf(*back) == input, "written bytes read back as themselves");
}

}  // namespace HalvernApi::Fuzz
