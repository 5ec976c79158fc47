// One hearing measurement of one ear, to be sent for a fitting configuration. Immutable values: any thread.
#pragma once

#include "HalvernApi/DeviceOrientation.hpp"

namespace HalvernApi {

// A measured point. The numbers travel as they are; the service reads them as hertz and decibels of hearing level.
class HALVERNAPI_EXPORT FrequencyVolumePair {
 public:
  FrequencyVolumePair(std::int64_t frequency, double volume) : frequency_(frequency), volume_(volume) {}

  std::int64_t frequency() const { return frequency_; }
  double volume() const { return volume_; }

  static Expected<FrequencyVolumePair, JsonDecodeError> decodeJson(const JsonValue& json);
  JsonObject encodeJson() const;

  friend bool operator==(const FrequencyVolumePair&, const FrequencyVolumePair&) = default;

 private:
  std::int64_t frequency_;
  double volume_;
};

class HALVERNAPI_EXPORT Audiogram {
 public:
  Audiogram(DeviceOrientation orientation, std::string serialNumber, std::string tube,
            std::vector<FrequencyVolumePair> values)
      : orientation_(orientation),
        serialNumber_(std::move(serialNumber)),
        tube_(std::move(tube)),
        values_(std::move(values)) {}

  DeviceOrientation orientation() const { return orientation_; }
  // Of the hearing aid that sits on this ear, as its tube is.
  const std::string& serialNumber() const { return serialNumber_; }
  const std::string& tube() const { return tube_; }
  // In the order in which they are sent; nothing is sorted or checked.
  const std::vector<FrequencyVolumePair>& values() const { return values_; }

  static Expected<Audiogram, JsonDecodeError> decodeJson(const JsonValue& json);
  JsonObject encodeJson() const;

  friend bool operator==(const Audiogram&, const Audiogram&) = default;

 private:
  DeviceOrientation orientation_;
  std::string serialNumber_;
  std::string tube_;
  std::vector<FrequencyVolumePair> values_;
};

// The ear and the number of points: the measurement itself is a medical record.
HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const Audiogram&);

}  // namespace HalvernApi
