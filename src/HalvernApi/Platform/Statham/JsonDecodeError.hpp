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

// The reason why a JSON value is not what a decoder expects. Errors are nested as the data is. An immutable value,
// cheap to copy: any thread.
class HALVERNAPI_EXPORT JsonDecodeError {
 public:
  // The kinds of errors; the functions of the same names explain them.
  enum class Case { wrongType, wrongEnumRawValue, missingKey, arrayElementErrors, structErrors };
  struct KeyError;
  struct ElementError;

  // `value` is not a JSON value of the type named by `expected`. The error keeps a copy of `value`.
  static JsonDecodeError wrongType(const JsonValue& value, std::string expected);
  // `value` is none of the texts of the enumeration `type`.
  static JsonDecodeError wrongEnumRawValue(std::string_view value, std::string type);
  // A key that a record requires is missing.
  static JsonDecodeError missingKey();
  // Elements of an array are bad.
  static JsonDecodeError arrayElementErrors(std::vector<ElementError> errors);
  // Keys of the record `type` are bad.
  static JsonDecodeError structErrors(std::string type, std::vector<KeyError> errors);

  // The kind of this error.
  Case kind() const;

  // The bad value of wrongType and wrongEnumRawValue; null for the other cases.
  const JsonValue* value() const;
  // The name of the expected type, the enumeration or the record; empty for the other cases.
  const std::string& type() const;
  // The errors of structErrors by key; empty for the other cases.
  const std::vector<KeyError>& keyErrors() const;
  // The errors of arrayElementErrors by index; empty for the other cases.
  const std::vector<ElementError>& elementErrors() const;
  // The error of `key`; null if there is none.
  const JsonDecodeError* at(std::string_view key) const;

  // For each bad value, its path and what is wrong with it, separated by "; ": `Audiogram.values[3].volume: expected
  // Double, found string`. Never shows the values themselves, because they may be secrets.
  std::string description() const;

  // Whether both report the same errors for the same values.
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
