// Why a JSON value is not what a decoder expects, nested as the data is. An immutable value, cheap to copy: any thread.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "HalvernApi/Platform/Foundation/Expected.hpp"
#include "HalvernApi/Platform/Foundation/Export.hpp"
#include "HalvernApi/Platform/Statham/Json.hpp"

namespace HalvernApi::Statham {

class HALVERNAPI_EXPORT JsonDecodeError {
 public:
  enum class Case { wrongType, wrongEnumRawValue, missingKey, arrayElementErrors, structErrors };
  struct KeyError;
  struct ElementError;

  static JsonDecodeError wrongType(const JsonValue& value, std::string expected);
  static JsonDecodeError wrongEnumRawValue(std::string_view value, std::string type);
  static JsonDecodeError missingKey();
  static JsonDecodeError arrayElementErrors(std::vector<ElementError> errors);
  static JsonDecodeError structErrors(std::string type, std::vector<KeyError> errors);

  Case kind() const;

  // The offending value, of wrongType and wrongEnumRawValue; null otherwise.
  const JsonValue* value() const;
  // The name of the expected type, the enumeration or the record; empty for the other cases.
  const std::string& type() const;
  // By key, of structErrors; empty otherwise.
  const std::vector<KeyError>& keyErrors() const;
  // By index, of arrayElementErrors; empty otherwise.
  const std::vector<ElementError>& elementErrors() const;
  // The error filed under `key`; null when there is none.
  const JsonDecodeError* at(std::string_view key) const;

  // A path and what is wrong there, for each bad value, with "; " between: `Audiogram.values[3].volume: expected
  // Double, found string`. It never shows the values themselves: they may be secrets.
  std::string description() const;

  friend HALVERNAPI_EXPORT bool operator==(const JsonDecodeError&, const JsonDecodeError&);
  friend HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const JsonDecodeError&);

 private:
  struct Node;
  explicit JsonDecodeError(Node node);
  void describe(const std::string& path, std::string& out) const;

  std::shared_ptr<const Node> node_;
};

struct JsonDecodeError::KeyError {
  std::string key;
  JsonDecodeError error;
  friend bool operator==(const KeyError&, const KeyError&) = default;
};

struct JsonDecodeError::ElementError {
  std::size_t index;
  JsonDecodeError error;
  friend bool operator==(const ElementError&, const ElementError&) = default;
};

}  // namespace HalvernApi::Statham

namespace HalvernApi {
using Statham::JsonDecodeError;
}  // namespace HalvernApi
