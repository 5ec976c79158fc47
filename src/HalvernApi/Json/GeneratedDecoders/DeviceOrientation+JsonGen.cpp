#include "HalvernApi/DeviceOrientation.hpp"

namespace HalvernApi {

template Foundation::Expected<DeviceOrientation, Statham::JsonDecodeError>
Statham::RawEnum<DeviceOrientation, DeviceOrientationCase>::decodeJson(const Statham::JsonValue&);
template std::string Statham::RawEnum<DeviceOrientation, DeviceOrientationCase>::encodeJson() const;

}  // namespace HalvernApi
