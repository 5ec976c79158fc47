#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

#include <algorithm>
#include <boost/json/value.hpp>
#include <ostream>

namespace HalvernApi::Statham {

struct JsonDecodeError::Node {
  Case kind;
  JsonValue value{};
  std::string type{};
  std::vector<KeyError> keyErrors{};
  std::vector<ElementError> elementErrors{};
};

namespace {

std::string_view nameOf(boost::json::kind kind) {
  switch (kind) {
    case boost::json::kind::null: return "null";
    case boost::json::kind::bool_: return "boolean";
    case boost::json::kind::int64:
    case boost::json::kind::uint64:
    case boost::json::kind::double_: return "number";
    case boost::json::kind::string: return "string";
    case boost::json::kind::array: return "array";
    case boost::json::kind::object: return "object";
  }
  return "nothing";
}

}  // namespace

JsonDecodeError::JsonDecodeError(std::shared_ptr<const Node> node) : node_(std::move(node)) {}

JsonDecodeError JsonDecodeError::wrongType(const JsonValue& value, std::string expected) {
  // A plain copy would live where the value does, and that may go before the error does.
  return JsonDecodeError(
      std::make_shared<const Node>(Node{Case::wrongType, JsonValue(value, {}), std::move(expected)}));
}

JsonDecodeError JsonDecodeError::wrongEnumRawValue(std::string_view value, std::string type) {
  return JsonDecodeError(std::make_shared<const Node>(
      Node{Case::wrongEnumRawValue, JsonValue(boost::json::string_view(value)), std::move(type)}));
}

JsonDecodeError JsonDecodeError::missingKey() {
  return JsonDecodeError(std::make_shared<const Node>(Node{Case::missingKey}));
}

JsonDecodeError JsonDecodeError::arrayElementErrors(std::vector<ElementError> errors) {
  return JsonDecodeError(
      std::make_shared<const Node>(Node{Case::arrayElementErrors, nullptr, {}, {}, std::move(errors)}));
}

JsonDecodeError JsonDecodeError::structErrors(std::string type, std::vector<KeyError> errors) {
  return JsonDecodeError(
      std::make_shared<const Node>(Node{Case::structErrors, nullptr, std::move(type), std::move(errors), {}}));
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
  const auto found =
      std::find_if(keyErrors().begin(), keyErrors().end(), [key](const KeyError& error) { return error.key == key; });
  return found == keyErrors().end() ? nullptr : &found->error;
}

std::string JsonDecodeError::description() const {
  std::string out;
  describe("", out);
  return out;
}

void JsonDecodeError::describe(const std::string& path, std::string& out) const {
  if (kind() == Case::structErrors) {
    // A record's name stands at the top of a path only: further down, the key says where it is.
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
  if (kind() == Case::wrongType)
    (out += "expected " + type() + ", found ") += nameOf(node_->value.kind());
  else
    out += kind() == Case::missingKey ? "missing" : "not one of the texts of " + type();
}

bool operator==(const JsonDecodeError& left, const JsonDecodeError& right) {
  const JsonDecodeError::Node& a = *left.node_;
  const JsonDecodeError::Node& b = *right.node_;
  return &a == &b || (a.kind == b.kind && a.value == b.value && a.type == b.type && a.keyErrors == b.keyErrors &&
                      a.elementErrors == b.elementErrors);
}

std::ostream& operator<<(std::ostream& out, const JsonDecodeError& error) { return out << error.description(); }

}  // namespace HalvernApi::Statham
