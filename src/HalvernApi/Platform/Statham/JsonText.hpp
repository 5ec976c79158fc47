// JSON as text: parsing answers and writing request bodies, on Boost.JSON's parser. Any thread. Not installed.
#pragma once

#include "HalvernApi/Platform/Foundation/Data.hpp"
#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

namespace HalvernApi::Statham {

struct JsonTextError {
  std::string description;  // quotes nothing of the text
  bool isTooLarge;          // the text may be JSON, but its values would take more memory or time than they may
};

constexpr std::size_t defaultMaxJsonBytes = std::size_t{256} << 20;

// UTF-8, with or without a byte order mark; any value at the top; at most 512 arrays and objects inside one another.
// `maxBytes` bounds the memory that the value takes and that it takes to make it. The squares of the objects' sizes add
// up to 400 million at most, or less where keys are long, so that keys with colliding hashes cannot take longer than a
// second.
HALVERNAPI_EXPORT Foundation::Expected<JsonValue, JsonTextError> parseJson(std::string_view text,
                                                                           std::size_t maxBytes = defaultMaxJsonBytes);

// Members in their order; numbers as the shortest plain decimal that reads back the same. Fails on text that is not
// UTF-8 and on numbers that are not finite, saying which, not what.
HALVERNAPI_EXPORT Foundation::Expected<std::string, std::string> writeJson(const JsonObject& object);

}  // namespace HalvernApi::Statham
