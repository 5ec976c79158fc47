#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

#include <boost/json/value.hpp>
#include <cmath>
#include <ostream>

namespace HalvernApi::Statham {

struct JsonDecodeError::Node {
  Case kind;
  JsonValue value{};
  std::string type{};
  std::vector<KeyError> keyErrors{};
  std::vector<ElementError> elementErrors{};

  friend bool operator==(const Node&, const Node&) = default;
};

namespace {

std::string_view nameOf(const JsonValue& value, std::string_view expected) {
  constexpr std::string_view names[] = {"null", "boolean", "number", "number", "number", "string", "array", "object"};
  if (expected == "Int" && value.is_number()) {
    const bool hasFraction = value.is_double() && std::trunc(value.get_double()) != value.get_double();
    return hasFraction ? "number with a fraction" : "number outside 64 bits";
  }
  return names[static_cast<std::size_t>(value.kind())];
}

}  // namespace

JsonDecodeError::JsonDecodeError(Node node) : node_(std::make_shared<const Node>(std::move(node))) {}

JsonDecodeError JsonDecodeError::wrongType(const JsonValue& value, std::string expected) {
  // A plain copy would use the memory resource of `value`. This resource may be destroyed before the error.
  return JsonDecodeError({Case::wrongType, JsonValue(value, {}), std::move(expected)});
}

JsonDecodeError JsonDecodeError::wrongEnumRawValue(std::string_view value, std::string type) {
  return JsonDecodeError({Case::wrongEnumRawValue, JsonValue(boost::json::string_view(value)), std::move(type)});
}

JsonDecodeError JsonDecodeError::missingKey() { return JsonDecodeError({Case::missingKey}); }

JsonDecodeError JsonDecodeError::arrayElementErrors(std::vector<ElementError> errors) {
  return JsonDecodeError({Case::arrayElementErrors, nullptr, {}, {}, std::move(errors)});
}

JsonDecodeError JsonDecodeError::structErrors(std::string type, std::vector<KeyError> errors) {
  return JsonDecodeError({Case::structErrors, nullptr, std::move(type), std::move(errors), {}});
}

JsonDecodeError::Case JsonDecodeError::kind() const { return node_->kind; }

const JsonValue* JsonDecodeError::value() const {
  return kind() == Case::wrongType || kind() == Case::wrongEnumRawValue ? &node_->value : nullptr;
}

const std::string& JsonDecodeError::type() const { return node_->type; }
const std::vector<JsonDecodeError::KeyError>& JsonDecodeError::keyErrors() const { return node_->keyErrors; }
const std::vector<JsonDecodeError::ElementError>& JsonDecodeError::elementErrors() const {
  return node_->elementErrors;
}

const JsonDecodeError* JsonDecodeError::at(std::string_view key) const {
  for (const KeyError& entry : keyErrors())
    if (entry.key == key) return &entry.error;
  return nullptr;
}

std::string JsonDecodeError::description() const {
  std::string out;
  describe("", out);
  return out;
}

void JsonDecodeError::describe(const std::string& path, std::string& out) const {
  if (kind() == Case::structErrors) {
    // A path begins with the name of the outermost record. Inner records are identified by their keys.
    const std::string& from = path.empty() ? type() : path;
    for (const KeyError& entry : keyErrors()) entry.error.describe(from + '.' + entry.key, out);
    return;
  }
  if (kind() == Case::arrayElementErrors) {
    for (const ElementError& entry : elementErrors())
      entry.error.describe(path + '[' + std::to_string(entry.index) + ']', out);
    return;
  }
  if (!out.empty()) out += "; ";
  if (!path.empty()) out += path + ": ";
  if (kind() == Case::wrongType) {
    out += "expected " + type() + ", found ";
    out += nameOf(node_->value, type());
  } else {
    out += kind() == Case::missingKey ? "missing" : "not one of the texts of " + type();
  }
}

bool operator==(const JsonDecodeError& left, const JsonDecodeError& right) {
  return left.node_ == right.node_ || *left.node_ == *right.node_;
}

std::ostream& operator<<(std::ostream& out, const JsonDecodeError& error) { return out << error.description(); }

}  // namespace HalvernApi::Statham
