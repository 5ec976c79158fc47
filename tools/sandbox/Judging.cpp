#include "Judging.hpp"

#include <algorithm>

namespace HalvernApi::Testing {

namespace json = boost::json;

std::vector<std::string> faults(const json::object& object, std::span<const Field> fields) {
  std::vector<std::string> found;
  for (const auto& [key, kind, isRequired] : fields) {
    const json::value* const value = object.if_contains(key);
    if (value == nullptr ? isRequired : !kind.holds(*value))
      found.push_back("The field " + std::string(key) + " must be " + std::string(kind.expectation) + '.');
  }
  for (const auto& member : object)
    if (std::none_of(fields.begin(), fields.end(), [&](const Field& field) { return field.key == member.key(); }))
      found.push_back("There must be no field " + std::string(member.key()) + '.');
  return found;
}

bool isArrayOf(std::span<const Field> fields, const json::value& value) {
  return value.is_array() && std::all_of(value.get_array().begin(), value.get_array().end(), [&](const auto& element) {
           return element.is_object() && faults(element.get_object(), fields).empty();
         });
}

std::string get(const json::object& body, std::string_view key) { return std::string(body.at(key).get_string()); }

Answer ok(const json::value& body) { return {.body = json::serialize(body)}; }

Answer refusal(int status, ErrorCode code, std::string_view message, const std::vector<std::string>& errors) {
  json::value list;
  if (!errors.empty()) list = json::array(errors.begin(), errors.end());
  return {.status = status,
          .body = json::serialize(
              json::object{{"errorCode", code}, {"message", message}, {"validationErrors", std::move(list)}})};
}

Answer invalid(const std::vector<std::string>& errors) {
  return refusal(400, invalidFields, "The request is not valid.", errors);
}

Answer wrongMethod(const std::string& allowed) {
  Answer answer = refusal(405, methodNotAllowed, "Only " + allowed + " is allowed here.");
  answer.headers.emplace_back("Allow", allowed);
  return answer;
}

}  // namespace HalvernApi::Testing
