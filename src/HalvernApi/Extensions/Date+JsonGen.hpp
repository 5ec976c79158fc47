#pragma once

#include "HalvernApi/Platform/Foundation/Date.hpp"
#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi {

// Reads a date from JSON: "yyyy-MM-dd'T'HH:mm:ss", in the device's time zone as it is at the moment, without an offset.
// Any thread, as long as none changes the environment variable TZ meanwhile.
//
// Every field takes exactly two digits, a year four, or more if the first is not 0. A local time that a change of the
// clocks skips is read with the offset from before the change (so 02:30 becomes 03:30), one that it repeats as the
// earlier of the two. The time zone is the C library's: TZ as a name, a rule or a file, or else the system's, within a
// tenth of a second of a change. Without its data a zone that has a name is UTC.
//
// Fails with wrongType and "ISO 8601 formatted NSDate".
HALVERNAPI_EXPORT Expected<Date, JsonDecodeError> decodeDate(const JsonValue& json);
// The text that `decodeDate` reads, rounded down to whole seconds. The year before 1 is 0000, and those before it are
// negative; they are not read.
HALVERNAPI_EXPORT std::string encodeDate(Date date);

namespace Statham {

template <class T>
struct JsonCodec;

// \cond
// The same, for members of records.
template <>
struct HALVERNAPI_EXPORT JsonCodec<Date> {
  static Expected<Date, JsonDecodeError> decodeJson(const JsonValue& json);
  static JsonValue encodeJson(Date date);
};
// \endcond

}  // namespace Statham
}  // namespace HalvernApi
