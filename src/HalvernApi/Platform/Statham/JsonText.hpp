// JSON as text: parsing answers and writing request bodies, on Boost.JSON's parser. Any thread. Not installed.
#pragma once

#include "HalvernApi/Platform/Foundation/Data.hpp"
#include "HalvernApi/Platform/Foundation/Expected.hpp"
#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

namespace HalvernApi::Statham {

// UTF-8, with or without a byte order mark; any value at the top; at most 512 arrays and objects inside one another.
// The error says what is wrong without quoting the text.
HALVERNAPI_EXPORT Foundation::Expected<JsonValue, std::string> parseJson(std::string_view text);

// Members in their order; numbers as the shortest plain decimal that reads back the same. Fails on text that is not
// UTF-8 and on numbers that are not finite, saying which, not what.
HALVERNAPI_EXPORT Foundation::Expected<std::string, std::string> writeJson(const JsonObject& object);

}  // namespace HalvernApi::Statham
