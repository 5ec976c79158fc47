#pragma once

#include "HalvernApi/DeviceOrientation.hpp"

namespace HalvernApi {

// A measured point of an Audiogram. The numbers are sent unchanged. An immutable value: any thread.
class HALVERNAPI_EXPORT FrequencyVolumePair {
 public:
  // Does not check the values. If `volume` is not finite, a call that sends it fails.
  FrequencyVolumePair(std::int64_t frequency, double volume) : frequency_(frequency), volume_(volume) {}

  // In hertz.
  std::int64_t frequency() const { return frequency_; }
  // In decibels of hearing level (dB HL).
  double volume() const { return volume_; }

  // Reads `{"frequency": 1000, "volume": 35.5}`. Both keys are required. Other keys are ignored.
  static Expected<FrequencyVolumePair, JsonDecodeError> decodeJson(const JsonValue& json);
  // Writes what `decodeJson` reads.
  JsonObject encodeJson() const;

  friend bool operator==(const FrequencyVolumePair&, const FrequencyVolumePair&) = default;

 private:
  std::int64_t frequency_;
  double volume_;
};

// A hearing measurement of one ear. The service computes a fitting configuration from it. An immutable value: any
// thread.
class HALVERNAPI_EXPORT Audiogram {
 public:
  // Does not check, sort or merge the values. `values` may be empty.
  Audiogram(DeviceOrientation orientation, std::string serialNumber, std::string tube,
            std::vector<FrequencyVolumePair> values)
      : orientation_(orientation),
        serialNumber_(std::move(serialNumber)),
        tube_(std::move(tube)),
        values_(std::move(values)) {}

  // The ear that was measured.
  DeviceOrientation orientation() const { return orientation_; }
  // Identifies the hearing aid for this ear.
  const std::string& serialNumber() const { return serialNumber_; }
  // The manufacturer's name for the tube of that hearing aid.
  const std::string& tube() const { return tube_; }
  // The measured points, in the order in which they are sent.
  const std::vector<FrequencyVolumePair>& values() const { return values_; }

  // Reads `{"orientation": "Left", "serialNumber": "1234", "tube": "M", "values": [...]}`. All keys are required. Other
  // keys are ignored. The error lists every bad key and every bad value.
  static Expected<Audiogram, JsonDecodeError> decodeJson(const JsonValue& json);
  // Writes what `decodeJson` reads.
  JsonObject encodeJson() const;

  friend bool operator==(const Audiogram&, const Audiogram&) = default;

 private:
  DeviceOrientation orientation_;
  std::string serialNumber_;
  std::string tube_;
  std::vector<FrequencyVolumePair> values_;
};

// Prints the ear and the number of points, but no values, because they are medical data.
HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const Audiogram&);

}  // namespace HalvernApi
