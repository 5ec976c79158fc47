#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "HalvernApi/Platform/Foundation/Export.hpp"

namespace HalvernApi::Foundation {

// A block of bytes, such as the body of an answer.
using Data = std::vector<std::byte>;

// The bytes seen as text, without a copy; valid as long as `data` is unchanged.
inline std::string_view textOf(const Data& data) { return {reinterpret_cast<const char*>(data.data()), data.size()}; }

// A copy of the bytes of `text`.
HALVERNAPI_EXPORT Data dataOf(std::string_view text);

// Whether `text` is UTF-8 as RFC 3629 has it: no surrogates, nothing longer than it need be. Any thread.
HALVERNAPI_EXPORT bool isUtf8(std::string_view text);

// Base64 of RFC 4648, standard alphabet, padded to a multiple of four. Absent when any other character (line breaks and
// blanks included), a wrong length or padding in the wrong place is found. Unused bits of the last group are ignored.
// Any thread.
HALVERNAPI_EXPORT std::optional<Data> decodeBase64(std::string_view text);

}  // namespace HalvernApi::Foundation

namespace HalvernApi {
using Foundation::Data;
using Foundation::dataOf;
using Foundation::decodeBase64;
using Foundation::textOf;
}  // namespace HalvernApi
