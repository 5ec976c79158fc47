// JSON as text: parsing answers and writing request bodies, on Boost.JSON's parser. Any thread. Not installed.
#pragma once

#include <memory>

#include "HalvernApi/Platform/Foundation/Data.hpp"
#include "HalvernApi/Platform/Foundation/Expected.hpp"
#include "HalvernApi/Platform/Statham/JsonCodec.hpp"

namespace HalvernApi::Statham {

// A parsed text and the memory that its values stand in.
class HALVERNAPI_EXPORT JsonDocument {
 public:
  // UTF-8, with or without a byte order mark; any value at the top; at most 512 arrays and objects inside one another.
  // The error says what is wrong without quoting the text.
  static Foundation::Expected<JsonDocument, std::string> parse(std::string_view text);

  JsonDocument(JsonDocument&&) noexcept;
  JsonDocument& operator=(JsonDocument&&) noexcept;
  ~JsonDocument();

  // Lives as long as the document; a copy of it is independent.
  const JsonValue& root() const;

 private:
  struct Content;
  explicit JsonDocument(std::unique_ptr<Content> content);

  std::unique_ptr<Content> content_;
};

// Members in their order; numbers as the shortest plain decimal that reads back the same. Fails on text that is not
// UTF-8 and on numbers that are not finite, saying which, not what.
HALVERNAPI_EXPORT Foundation::Expected<std::string, std::string> writeJson(const JsonObject& object);

}  // namespace HalvernApi::Statham
