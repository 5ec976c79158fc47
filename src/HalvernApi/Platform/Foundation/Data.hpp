#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi::Foundation {

// A block of bytes, such as the body of an answer.
using Data = std::vector<std::byte>;

// Views the bytes as text, without a copy. Valid until `data` is changed or destroyed.
inline std::string_view textOf(const Data& data) { return {reinterpret_cast<const char*>(data.data()), data.size()}; }

HALVERNAPI_EXPORT Data dataOf(std::string_view text);

// Whether `text` is valid UTF-8 (RFC 3629). Surrogates and overlong sequences are invalid. Any thread.
HALVERNAPI_EXPORT bool isUtf8(std::string_view text);

// Decodes Base64 (RFC 4648, standard alphabet, padded to a multiple of four). Absent if the length is not a multiple of
// four, the padding is in the wrong place, or `text` contains any other character, such as a line break or a blank.
// Unused bits of the last group are ignored. Any thread.
HALVERNAPI_EXPORT std::optional<Data> decodeBase64(std::string_view text);

}  // namespace HalvernApi::Foundation

namespace HalvernApi {
using Foundation::Data;
using Foundation::dataOf;
using Foundation::decodeBase64;
using Foundation::textOf;
}  // namespace HalvernApi
