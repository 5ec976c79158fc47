#include "HalvernApi/DeviceOrientation.hpp"
#include "HalvernApi/Platform/Statham/EnumCodec.hpp"

template class HalvernApi::Statham::RawEnum<HalvernApi::DeviceOrientation, HalvernApi::DeviceOrientationCase>;
