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

// Why a JSON value is not what a decoder expects, nested as the data is. An immutable value, cheap to copy: any thread.
class HALVERNAPI_EXPORT JsonDecodeError {
 public:
  // What is wrong, each as the constructor of the same name says.
  enum class Case { wrongType, wrongEnumRawValue, missingKey, arrayElementErrors, structErrors };
  struct KeyError;
  struct ElementError;

  // `value`, of which a copy is kept, is not a JSON value of the type named by `expected`.
  static JsonDecodeError wrongType(const JsonValue& value, std::string expected);
  // `value` is none of the texts of the enumeration `type`.
  static JsonDecodeError wrongEnumRawValue(std::string_view value, std::string type);
  // A key that a record needs is not there.
  static JsonDecodeError missingKey();
  // Elements of an array are bad.
  static JsonDecodeError arrayElementErrors(std::vector<ElementError> errors);
  // Keys of the record `type` are bad.
  static JsonDecodeError structErrors(std::string type, std::vector<KeyError> errors);

  // For a `switch`.
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

  // Whether both say the same of the same values.
  friend HALVERNAPI_EXPORT bool operator==(const JsonDecodeError&, const JsonDecodeError&);
  // Prints `description()`.
  friend HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const JsonDecodeError&);

 private:
  struct Node;
  explicit JsonDecodeError(Node node);
  void describe(const std::string& path, std::string& out) const;

  std::shared_ptr<const Node> node_;
};

// A bad key of a record.
struct JsonDecodeError::KeyError {
  std::string key;        // as in the JSON object
  JsonDecodeError error;  // what is wrong with its value
  friend bool operator==(const KeyError&, const KeyError&) = default;
};

// A bad element of an array.
struct JsonDecodeError::ElementError {
  std::size_t index;      // from 0
  JsonDecodeError error;  // what is wrong with it
  friend bool operator==(const ElementError&, const ElementError&) = default;
};

}  // namespace HalvernApi::Statham

namespace HalvernApi {
using Statham::JsonDecodeError;
}  // namespace HalvernApi
