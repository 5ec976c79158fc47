#include "HalvernApi/Sex.hpp"

namespace HalvernApi {

template Foundation::Expected<Sex, Statham::JsonDecodeError> Statham::RawEnum<Sex, SexCase>::decodeJson(
    const Statham::JsonValue&);
template std::string Statham::RawEnum<Sex, SexCase>::encodeJson() const;

}  // namespace HalvernApi
