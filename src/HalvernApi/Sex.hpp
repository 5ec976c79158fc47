// The user's sex as the service knows it. A value: any thread.
#pragma once

#include "HalvernApi/Platform/Statham/RawEnum.hpp"

namespace HalvernApi {

enum class HALVERNAPI_EXPORT SexCase : std::uint8_t { male, female, unknown };

// `switch (sex) { case Sex::male: ... }`
class HALVERNAPI_EXPORT Sex : public Statham::RawEnum<Sex, SexCase> {
 public:
  using RawEnum::RawEnum;
  static const Sex male, female, unknown;
  static constexpr std::string_view typeName = "Sex";
  static constexpr std::array<std::string_view, 3> rawValues = {"Male", "Female", "NotKnown"};
};

inline constexpr Sex Sex::male = Case::male, Sex::female = Case::female, Sex::unknown = Case::unknown;

}  // namespace HalvernApi
