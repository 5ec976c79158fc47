#pragma once

#include "HalvernApi/DeviceOrientation.hpp"

namespace HalvernApi {

// A measured point of an Audiogram. The numbers travel as they are; the service reads them as hertz and decibels of
// hearing level. An immutable value: any thread.
class HALVERNAPI_EXPORT FrequencyVolumePair {
 public:
  // Nothing is checked here; a volume that is not finite fails the call that it is sent with.
  FrequencyVolumePair(std::int64_t frequency, double volume) : frequency_(frequency), volume_(volume) {}

  // In hertz.
  std::int64_t frequency() const { return frequency_; }
  // In decibels of hearing level.
  double volume() const { return volume_; }

  // Reads `{"frequency": 1000, "volume": 35.5}`. Both keys are needed; others are ignored.
  static Expected<FrequencyVolumePair, JsonDecodeError> decodeJson(const JsonValue& json);
  // What `decodeJson` reads.
  JsonObject encodeJson() const;

  friend bool operator==(const FrequencyVolumePair&, const FrequencyVolumePair&) = default;

 private:
  std::int64_t frequency_;
  double volume_;
};

// One hearing measurement of one ear, to be sent for a fitting configuration. An immutable value: any thread.
class HALVERNAPI_EXPORT Audiogram {
 public:
  // Nothing is checked, sorted or merged; there may be no values at all.
  Audiogram(DeviceOrientation orientation, std::string serialNumber, std::string tube,
            std::vector<FrequencyVolumePair> values)
      : orientation_(orientation),
        serialNumber_(std::move(serialNumber)),
        tube_(std::move(tube)),
        values_(std::move(values)) {}

  // The ear that was measured.
  DeviceOrientation orientation() const { return orientation_; }
  // Of the hearing aid that sits on this ear.
  const std::string& serialNumber() const { return serialNumber_; }
  // The tube of that hearing aid, in the maker's words.
  const std::string& tube() const { return tube_; }
  // The measured points, in the order in which they are sent.
  const std::vector<FrequencyVolumePair>& values() const { return values_; }

  // Reads `{"orientation": "Left", "serialNumber": "1234", "tube": "M", "values": [...]}`. All keys are needed; others
  // are ignored. Every bad key and every bad value is reported at once.
  static Expected<Audiogram, JsonDecodeError> decodeJson(const JsonValue& json);
  // What `decodeJson` reads.
  JsonObject encodeJson() const;

  friend bool operator==(const Audiogram&, const Audiogram&) = default;

 private:
  DeviceOrientation orientation_;
  std::string serialNumber_;
  std::string tube_;
  std::vector<FrequencyVolumePair> values_;
};

// Prints the ear and the number of points: the measurement itself is a medical record.
HALVERNAPI_EXPORT std::ostream& operator<<(std::ostream&, const Audiogram&);

}  // namespace HalvernApi
