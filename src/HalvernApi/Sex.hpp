#pragma once

#include "HalvernApi/Platform/Statham/RawEnum.hpp"

namespace HalvernApi {

// \cond
enum class HALVERNAPI_EXPORT SexCase : std::uint8_t { male, female, unknown };
// \endcond

// The user's sex as the service stores it. Works in `switch (sex) { case Sex::male: ... }`. A value: any thread.
class HALVERNAPI_EXPORT Sex : public Statham::RawEnum<Sex, SexCase> {
 public:
  using RawEnum::RawEnum;
  static const Sex male,  // "Male" in JSON
      female,             // "Female" in JSON
      unknown;            // "NotKnown" in JSON
  // \cond
  static constexpr std::string_view typeName = "Sex";
  static constexpr std::array<std::string_view, 3> rawValues = {"Male", "Female", "NotKnown"};
  // \endcond
};

inline constexpr Sex Sex::male = Case::male, Sex::female = Case::female, Sex::unknown = Case::unknown;

// \cond
extern template Foundation::Expected<Sex, Statham::JsonDecodeError> Statham::RawEnum<Sex, SexCase>::decodeJson(
    const Statham::JsonValue&);
extern template std::string Statham::RawEnum<Sex, SexCase>::encodeJson() const;
// \endcond

}  // namespace HalvernApi
