#include <ostream>

#include "HalvernApi/Audiogram.hpp"
#include "HalvernApi/Platform/Statham/RecordCodec.hpp"

namespace HalvernApi {
namespace {

using Statham::field;

constexpr Statham::RecordCodec pairCodec("FrequencyVolumePair",  //
                                         field("frequency", &FrequencyVolumePair::frequency),
                                         field("volume", &FrequencyVolumePair::volume));

constexpr Statham::RecordCodec audiogramCodec("Audiogram",  //
                                              field("orientation", &Audiogram::orientation),
                                              field("serialNumber", &Audiogram::serialNumber),
                                              field("tube", &Audiogram::tube), field("values", &Audiogram::values));

}  // namespace

Decoded<FrequencyVolumePair> FrequencyVolumePair::decodeJson(const JsonValue& json) { return pairCodec.decode(json); }
JsonObject FrequencyVolumePair::encodeJson() const { return pairCodec.encode(*this); }

Decoded<Audiogram> Audiogram::decodeJson(const JsonValue& json) { return audiogramCodec.decode(json); }
JsonObject Audiogram::encodeJson() const { return audiogramCodec.encode(*this); }

std::ostream& operator<<(std::ostream& out, const Audiogram& audiogram) {
  return out << "Audiogram(" << audiogram.orientation() << ", " << audiogram.values().size() << " points)";
}

}  // namespace HalvernApi
