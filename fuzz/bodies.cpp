// Numbers and a text made of the bytes, written as a request body and read back by Boost.JSON's own parser, and the
// number by the standard library's too, which is exact. What JSON cannot carry is refused.
#include <boost/json/parse.hpp>
#include <charconv>
#include <cmath>
#include <cstring>

#include "HalvernApi/Platform/Statham/JsonText.hpp"
#include "Support.hpp"

namespace HalvernApi::Fuzz {
void check(std::string_view input) {
  const auto take = [input](auto number) {
    std::memcpy(&number, input.data(), std::min(input.size(), sizeof number));
    return number;
  };
  const double number = take(0.0);
  const boost::json::string_view text = input.substr(std::min(input.size(), sizeof number));
  const boost::json::array rest = {take(std::int64_t{}), take(std::uint64_t{}), text, {}, {{text, nullptr}}, true};

  const auto body = Statham::writeJson({{"number", number}, {"rest", rest}});
  require(body.has_value() == (std::isfinite(number) && Foundation::isUtf8(text)), "what JSON can carry is written");
  if (!body) return;
  boost::json::error_code error;
  const JsonValue read = boost::json::parse(*body, error);
  require(!error, "a written body is JSON");
  require(read.at("rest") == rest, "what is not a double reads back as itself");
  const std::string digits = body->substr(10, body->find(',') - 10);
  require(digits.find_first_not_of("-.0123456789") == std::string::npos, "a number is a plain decimal");
  require(hasLongNumber(digits) || read.at("number").to_number<double>() == number, "a number reads back");
  double exact = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), exact);
  require(exact == number, "a number reads back exactly");
}

}  // namespace HalvernApi::Fuzz
