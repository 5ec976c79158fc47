// Checks JSON bodies against tables of fields, and makes the answers that refuse a request. Stateless: may be called
// from any thread.
#pragma once

#include <boost/json.hpp>
#include <span>

#include "HalvernApi/Testing/Sandbox.hpp"

namespace HalvernApi::Testing {

// A check of a value. If it fails, the message says that the value "must be" these words.
struct Kind {
  std::string_view expectation;
  bool (*holds)(const boost::json::value&);
};

constexpr Kind text{"a string", [](const boost::json::value& value) { return value.is_string(); }};

struct Field {
  std::string_view key;
  Kind kind = text;
  bool isRequired = true;
};

// Checks that an object has these members and no others. Returns a sentence for each fault.
std::vector<std::string> faults(const boost::json::object& object, std::span<const Field> fields);

bool isArrayOf(std::span<const Field> fields, const boost::json::value& value);

// The value of a member that must be a string.
std::string get(const boost::json::object& body, std::string_view key);

// The numbers that the service uses for the reasons of a refusal.
enum ErrorCode { notAuthorized = 1, notFound, methodNotAllowed, notJson, invalidFields, wrongCredentials, taken };

Answer ok(const boost::json::value& body);
Answer refusal(int status, ErrorCode code, std::string_view message, const std::vector<std::string>& errors = {});
Answer invalid(const std::vector<std::string>& errors);
Answer wrongMethod(const std::string& allowed);

// Calls `handle` with the body if it is a JSON object with these fields. If not, refuses the request.
template <class Handle>
Answer judge(const std::string& body, std::span<const Field> fields, Handle handle) {
  boost::system::error_code error;
  const boost::json::value parsed = boost::json::parse(body, error);
  if (error || !parsed.is_object()) return refusal(400, notJson, "The body is not a JSON object.");
  const auto errors = faults(parsed.get_object(), fields);
  return errors.empty() ? handle(parsed.get_object()) : invalid(errors);
}

}  // namespace HalvernApi::Testing
