#include "HalvernApi/Platform/Statham/JsonText.hpp"

#include <algorithm>
#include <array>
#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value_stack.hpp>
#include <boost/version.hpp>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>

namespace HalvernApi::Statham {

using Foundation::Expected;
using Foundation::Unexpected;

namespace {

constexpr int maxDepth = 512;  // of nested arrays and objects

// Builds a value from the events of the parser. Limits the memory and the time for this by estimates, which are never
// too low.
class Builder {
 public:
  static constexpr std::size_t max_object_size = JsonObject::max_size();
  static constexpr std::size_t max_array_size = boost::json::array::max_size();
  static constexpr std::size_t max_key_size = boost::json::string::max_size();
  static constexpr std::size_t max_string_size = boost::json::string::max_size();
  using Code = boost::json::error_code;
  using Text = boost::json::string_view;

  explicit Builder(std::size_t maxBytes) : maxBytes_(maxBytes) { stack_.reset(); }
  JsonValue release() { return stack_.release(); }

  bool on_document_begin(Code&) { return true; }
  bool on_document_end(Code&) { return true; }
  bool on_object_begin(Code&) { return true; }
  bool on_array_begin(Code&) { return true; }
  bool on_comment_part(Text, Code&) { return true; }
  bool on_comment(Text, Code&) { return true; }
  bool on_number_part(Text, Code&) { return true; }
  bool on_object_end(std::size_t count, Code& code) {
    held_ -= 2 * count;
    const auto members = static_cast<double>(count);
    cost_ += members * members * (bytesOfAComparison + static_cast<double>(longestKey_));
    const std::size_t bytes = count * (sizeof(boost::json::key_value_pair) + indexBytes);
    return add(code, bytes, [&] { stack_.push_object(count); });
  }
  bool on_array_end(std::size_t count, Code& code) {
    held_ -= count;
    return add(code, count * sizeof(JsonValue), [&] { stack_.push_array(count); });
  }
  bool on_key_part(Text part, std::size_t size, Code& code) { return on_string_part(part, size, code); }
  bool on_string_part(Text part, std::size_t size, Code& code) {
    if (!fits(code, size)) return false;
    stack_.push_chars(part);
    return true;
  }
  bool on_key(Text text, std::size_t size, Code& code) {
    longestKey_ = std::max(longestKey_, size);
    return add(code, size, [&] { stack_.push_key(text); });
  }
  bool on_string(Text text, std::size_t size, Code& code) {
    return add(code, size, [&] { stack_.push_string(text); });
  }
  bool on_int64(std::int64_t value, Text text, Code& code) {
    if (value == 0 && text.starts_with('-')) return on_double(-0.0, text, code);  // an integer cannot be negative zero
    return add(code, 0, [&] { stack_.push_int64(value); });
  }
  bool on_uint64(std::uint64_t value, Text, Code& code) {
    return add(code, 0, [&] { stack_.push_uint64(value); });
  }
  bool on_double(double value, [[maybe_unused]] Text text, Code& code) {
#if BOOST_VERSION < 108200  // these versions have no precise mode, so the last bits may be wrong
#ifdef __cpp_lib_to_chars
    std::from_chars(text.data(), text.data() + text.size(), value);
#else
    static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
    value = ::strtod_l(std::string(text).c_str(), nullptr, plain);
#endif
#endif
    return add(code, 0, [&] { stack_.push_double(value); });
  }
  bool on_bool(bool value, Code& code) {
    return add(code, 0, [&] { stack_.push_bool(value); });
  }
  bool on_null(Code& code) {
    return add(code, 0, [&] { stack_.push_null(); });
  }

 private:
  static constexpr std::size_t blockBytes = 40;  // overhead of a block on the heap
  static constexpr std::size_t indexBytes = 8;   // overhead of a large object for each member
  // The sender of an object can choose keys with the same hash. Each key is then compared with all keys before it. One
  // such comparison takes as long as comparing this number of bytes plus the bytes of the key.
  static constexpr double bytesOfAComparison = 32;
  static constexpr double maxCost = 400'000'000 * bytesOfAComparison;  // takes less than a second

  // Calls `push`, which adds a value to the stack, if there is room for that value and its `bytes` on the heap.
  // Otherwise sets `code` and returns false.
  template <class Push>
  bool add(Code& code, std::size_t bytes, Push push) {
    ++held_;
    if (bytes != 0) keptBytes_ += bytes + blockBytes;
    if (!fits(code, 0)) return false;
    push();
    return true;
  }
  // The stack counts three times, because two blocks exist while it grows: the old one and one of twice the size. It
  // also contains the text that is being read.
  bool fits(Code& code, std::size_t textBytes) {
    stackBytes_ = std::max(stackBytes_, (held_ + 1) * sizeof(JsonValue) + textBytes);
    if (keptBytes_ + 3 * stackBytes_ <= maxBytes_ && cost_ <= maxCost) return true;
    code = make_error_code(boost::system::errc::not_enough_memory);
    return false;
  }

  const std::size_t maxBytes_;
  std::size_t held_ = 0;  // values on the stack
  std::size_t stackBytes_ = 0;
  std::size_t keptBytes_ = 0;
  double cost_ = 0;  // estimated time for comparing keys
  std::size_t longestKey_ = 0;
  std::array<unsigned char, 1024> scratch_;
  boost::json::value_stack stack_{{}, scratch_.data(), scratch_.size()};
};

}  // namespace

Expected<JsonValue, JsonTextError> parseJson(std::string_view text, std::size_t maxBytes) {
  if (constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF"; text.starts_with(byteOrderMark))
    text.remove_prefix(byteOrderMark.size());
  boost::json::parse_options options;
  options.max_depth = maxDepth;
#if BOOST_VERSION >= 108200
  options.numbers = boost::json::number_precision::precise;
#endif
  boost::json::basic_parser<Builder> parser(options, maxBytes);
  boost::json::error_code error;
  const std::size_t read = parser.write_some(false, text.data(), text.size(), error);
  if (!error && read < text.size()) error = boost::json::error::extra_data;
  if (!error) return parser.handler().release();
  return Unexpected<JsonTextError>({error.message(), error == boost::system::errc::not_enough_memory});
}

namespace {

// Writes JSON to `out` until the first error.
struct Writer {
  std::string out{};
  std::string fault{};

  bool object(const JsonObject& object, int depth) {
    return list('{', '}', object, [&](const boost::json::key_value_pair& member) {
      return string(member.key()) && append(":") && value(member.value(), depth);
    });
  }

  bool value(const JsonValue& json, int depth) {
    if (depth > maxDepth) return fail("values are nested too deeply");
    switch (json.kind()) {
      case boost::json::kind::null: return append("null");
      case boost::json::kind::bool_: return append(json.get_bool() ? "true" : "false");
      case boost::json::kind::int64: return append(std::to_string(json.get_int64()));
      case boost::json::kind::uint64: return append(std::to_string(json.get_uint64()));
      case boost::json::kind::double_: return number(json.get_double());
      case boost::json::kind::string: return string(json.get_string());
      case boost::json::kind::object: return object(json.get_object(), depth + 1);
      case boost::json::kind::array:
        return list('[', ']', json.get_array(), [&](const JsonValue& element) { return value(element, depth + 1); });
    }
    return true;
  }

 private:
  bool fail(std::string_view why) {
    fault = why;
    return false;
  }

  bool append(std::string_view text) {
    out += text;
    return true;
  }

  bool string(std::string_view text) {
    const auto plain = [](char c) { return c >= 0x20 && c < 0x7f && c != '"' && c != '\\'; };
    if (std::all_of(text.begin(), text.end(), plain))  // true for nearly every text
      return append("\"") && append(text) && append("\"");
    if (!Foundation::isUtf8(text)) return fail("a text is not UTF-8");
    return append(boost::json::serialize(boost::json::string_view(text)));
  }

  bool number(double value) {
    if (!std::isfinite(value)) return fail("a number is not finite");
    std::array<char, 400> digits;  // the longest text of a double has about 330 characters
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed).ptr;
    return append({digits.data(), static_cast<std::size_t>(end - digits.data())});
  }

  template <class Range, class Write>
  bool list(char open, char close, const Range& range, Write write) {
    out += open;
    bool first = true;
    for (const auto& entry : range) {
      if (!std::exchange(first, false)) out += ',';
      if (!write(entry)) return false;
    }
    out += close;
    return true;
  }
};

}  // namespace

Expected<std::string, std::string> writeJson(const JsonObject& object) {
  Writer writer;
  writer.out.reserve(160);
  if (!writer.object(object, 0)) return Unexpected<std::string>(std::move(writer.fault));
  return std::move(writer.out);
}

}  // namespace HalvernApi::Statham
