#include <array>
#include <ostream>

#include "HalvernApi/Platform/Statham/EnumCodec.hpp"
#include "HalvernApi/Sex.hpp"

namespace HalvernApi {
namespace {

constexpr std::array<std::string_view, 3> rawValues = {"Male", "Female", "NotKnown"};

}  // namespace

std::optional<Sex> Sex::fromRawValue(std::string_view rawValue) { return Statham::caseOf<Sex>(rawValue, rawValues); }
std::string_view Sex::rawValue() const { return rawValues[static_cast<std::size_t>(case_)]; }
std::size_t Sex::hashValue() const { return std::hash<std::size_t>{}(static_cast<std::size_t>(case_)); }

Expected<Sex, JsonDecodeError> Sex::decodeJson(const JsonValue& json) {
  return Statham::decodeCase<Sex>(json, rawValues, "Sex");
}
std::string Sex::encodeJson() const { return std::string(rawValue()); }

std::ostream& operator<<(std::ostream& out, Sex sex) { return out << sex.rawValue(); }

}  // namespace HalvernApi
