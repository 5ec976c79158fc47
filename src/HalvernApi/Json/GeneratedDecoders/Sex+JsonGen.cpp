#include "HalvernApi/Platform/Statham/EnumCodec.hpp"
#include "HalvernApi/Sex.hpp"

template class HalvernApi::Statham::RawEnum<HalvernApi::Sex, HalvernApi::SexCase>;
