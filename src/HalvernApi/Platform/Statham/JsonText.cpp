#include "HalvernApi/Platform/Statham/JsonText.hpp"

#include <algorithm>
#include <array>
#include <boost/json/parser.hpp>
#include <boost/json/serializer.hpp>
#include <charconv>
#include <cmath>

namespace HalvernApi::Statham {

using Foundation::Expected;
using Foundation::Unexpected;

Expected<JsonValue, std::string> parseJson(std::string_view text) {
  if (constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF"; text.starts_with(byteOrderMark))
    text.remove_prefix(byteOrderMark.size());
  boost::json::parse_options options;
  options.max_depth = 512;
  std::array<unsigned char, 1024> scratch;
  boost::json::parser parser({}, options, scratch.data(), scratch.size());
  boost::json::error_code error;
  parser.write(text.data(), text.size(), error);
  if (error) return Unexpected<std::string>(error.message());
  return parser.release();
}

namespace {

// Writes into `out`; the first fault ends it.
class Writer {
 public:
  bool value(const JsonValue& json, int depth = 0);
  bool object(const JsonObject& object, int depth);

  std::string out;
  std::string fault;

 private:
  bool string(std::string_view text);
  bool number(double value);
  template <class Integer>
  bool integer(Integer value);
  template <class Range, class Write>
  bool list(char open, char close, const Range& range, Write write);
  bool fail(std::string_view why);
};

bool Writer::fail(std::string_view why) {
  fault = why;
  return false;
}

bool Writer::string(std::string_view text) {
  const auto plain = [](char c) { return c >= 0x20 && c < 0x7f && c != '"' && c != '\\'; };
  if (std::all_of(text.begin(), text.end(), plain)) {  // as nearly every text is
    ((out += '"') += text) += '"';
    return true;
  }
  if (!Foundation::isUtf8(text)) return fail("a text is not UTF-8");
  boost::json::serializer escaper;
  escaper.reset(boost::json::string_view(text));
  std::array<char, 1024> block;
  while (!escaper.done()) out += std::string_view(escaper.read(block.data(), block.size()));
  return true;
}

bool Writer::number(double value) {
  if (!std::isfinite(value)) return fail("a number is not finite");
  std::array<char, 400> digits;  // the longest, the smallest double, takes some 330
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed).ptr;
  out.append(digits.data(), end);
  return true;
}

template <class Integer>
bool Writer::integer(Integer value) {
  out += std::to_string(value);
  return true;
}

template <class Range, class Write>
bool Writer::list(char open, char close, const Range& range, Write write) {
  out += open;
  bool first = true;
  for (const auto& entry : range) {
    if (!std::exchange(first, false)) out += ',';
    if (!write(entry)) return false;
  }
  out += close;
  return true;
}

bool Writer::object(const JsonObject& object, int depth) {
  return list('{', '}', object, [&](const boost::json::key_value_pair& member) {
    return string(member.key()) && (out += ':', value(member.value(), depth));
  });
}

bool Writer::value(const JsonValue& json, int depth) {
  if (depth > 512) return fail("values are nested too deeply");
  switch (json.kind()) {
    case boost::json::kind::null: out += "null"; return true;
    case boost::json::kind::bool_: out += json.get_bool() ? "true" : "false"; return true;
    case boost::json::kind::int64: return integer(json.get_int64());
    case boost::json::kind::uint64: return integer(json.get_uint64());
    case boost::json::kind::double_: return number(json.get_double());
    case boost::json::kind::string: return string(json.get_string());
    case boost::json::kind::object: return object(json.get_object(), depth + 1);
    case boost::json::kind::array:
      return list('[', ']', json.get_array(), [&](const JsonValue& element) { return value(element, depth + 1); });
  }
  return true;
}

}  // namespace

Expected<std::string, std::string> writeJson(const JsonObject& object) {
  Writer writer;
  writer.out.reserve(160);
  if (!writer.object(object, 0)) return Unexpected<std::string>(std::move(writer.fault));
  return std::move(writer.out);
}

}  // namespace HalvernApi::Statham
