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

// The reason why a JSON value is not what a decoder expects. Errors are nested like the data. An immutable value, cheap
// to copy: any thread.
class HALVERNAPI_EXPORT JsonDecodeError {
 public:
  // The kinds of errors. The functions of the same names describe them.
  enum class Case { wrongType, wrongEnumRawValue, missingKey, arrayElementErrors, structErrors };
  struct KeyError;
  struct ElementError;

  // Reports that `value` does not have the type named by `expected`, such as "Int". The error keeps a copy of `value`.
  static JsonDecodeError wrongType(const JsonValue& value, std::string expected);
  // Reports that `value` is none of the texts of the enumeration `type`.
  static JsonDecodeError wrongEnumRawValue(std::string_view value, std::string type);
  // Reports that a key that a record requires is missing.
  static JsonDecodeError missingKey();
  // Reports bad elements of an array.
  static JsonDecodeError arrayElementErrors(std::vector<ElementError> errors);
  // Reports bad keys of the record `type`.
  static JsonDecodeError structErrors(std::string type, std::vector<KeyError> errors);

  Case kind() const;

  // The bad value of wrongType and wrongEnumRawValue; null for the other cases. The error owns it.
  const JsonValue* value() const;
  // The name of the expected type, the enumeration or the record; empty for the other cases.
  const std::string& type() const;
  // The errors of structErrors by key; empty for the other cases.
  const std::vector<KeyError>& keyErrors() const;
  // The errors of arrayElementErrors by index; empty for the other cases.
  const std::vector<ElementError>& elementErrors() const;
  // The error of `key` in structErrors; null if there is none. This error owns it.
  const JsonDecodeError* at(std::string_view key) const;

  // Lists the path and the fault of each bad value, separated by "; ". For example `Audiogram.values[3].volume:
  // expected Double, found string`. Never contains the values, because they may be secrets.
  std::string description() const;

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
  std::string key;
  JsonDecodeError error;
  friend bool operator==(const KeyError&, const KeyError&) = default;
};

// A bad element of an array.
struct JsonDecodeError::ElementError {
  std::size_t index;  // the position in the array, from 0
  JsonDecodeError error;
  friend bool operator==(const ElementError&, const ElementError&) = default;
};

}  // namespace HalvernApi::Statham

namespace HalvernApi {
using Statham::JsonDecodeError;
}  // namespace HalvernApi
