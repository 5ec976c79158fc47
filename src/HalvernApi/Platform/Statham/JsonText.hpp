// Parses the JSON of answers and writes the JSON of request bodies, with Boost.JSON's parser. Any thread. Not
// installed.
#pragma once

#include "HalvernApi/Platform/Foundation/Data.hpp"
#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

namespace HalvernApi::Statham {

struct JsonTextError {
  std::string description;  // contains no part of the text
  bool isTooLarge;          // the text may be JSON, but its values exceed the limit of memory or time
};

constexpr std::size_t defaultMaxJsonBytes = std::size_t{256} << 20;

// Parses JSON. Accepts UTF-8 with or without a byte order mark, any value at the top level, and at most 512 nested
// arrays and objects. `maxBytes` limits the memory of the value, including what is needed to build it. The squares of
// the objects' sizes may add up to 400 million at most, or less if keys are long. This limits the time for keys with
// colliding hashes to a second.
HALVERNAPI_EXPORT Foundation::Expected<JsonValue, JsonTextError> parseJson(std::string_view text,
                                                                           std::size_t maxBytes = defaultMaxJsonBytes);

// Writes JSON. Members keep their order. A number is written as the shortest decimal without an exponent that is read
// as the same number. Fails if a text is not UTF-8, a number is not finite, or more than 512 arrays and objects are
// nested. The error is a description without the value.
HALVERNAPI_EXPORT Foundation::Expected<std::string, std::string> writeJson(const JsonObject& object);

}  // namespace HalvernApi::Statham
