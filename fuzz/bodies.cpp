// Numbers and a text made of the bytes, written as a request body and read back. The standard library says which number
// a text stands for. What JSON cannot carry is refused.
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
  const auto read = Statham::parseJson(*body);
  require(read.has_value(), "a written body is JSON");
  require(read->at("rest") == rest, "what is not a double reads back as itself");
  const std::string digits = body->substr(10, body->find(',') - 10);
  require(digits.find_first_not_of("-.0123456789") == std::string::npos, "a number is a plain decimal");
  double exact = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), exact);
  for (const double back : {exact, JsonCodec<double>::decodeJson(read->at("number")).value()})
    require(std::memcmp(&back, &number, sizeof back) == 0, "a number reads back, and so does its sign");
}

}  // namespace HalvernApi::Fuzz
