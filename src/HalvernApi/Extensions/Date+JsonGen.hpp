#pragma once

#include "HalvernApi/Platform/Foundation/Date.hpp"
#include "HalvernApi/Platform/Statham/JsonDecodeError.hpp"

namespace HalvernApi {

// Reads a date from JSON: "yyyy-MM-dd'T'HH:mm:ss", without an offset, in the device's current time zone. Any thread, as
// long as no thread changes the environment variable TZ at the same time.
//
// A year has four digits, or five or six if the first is not 0. All other fields have exactly two digits. A local time
// that a change of the clocks skips is read with the offset from before the change (so 02:30 becomes 03:30). A local
// time that occurs twice is read as the earlier of the two. The C library determines the time zone: from TZ, which is a
// name, a rule or a file, or else from the system. A change of the system's time zone takes effect within a tenth of a
// second. A named zone without data is UTC.
//
// Fails with wrongType and the expected type "ISO 8601 formatted NSDate".
HALVERNAPI_EXPORT Expected<Date, JsonDecodeError> decodeDate(const JsonValue& json);
// Writes the text that `decodeDate` reads, rounded down to whole seconds. The year before 1 is written as 0000, and
// earlier years as negative numbers. `decodeDate` does not read such years.
HALVERNAPI_EXPORT std::string encodeDate(Date date);

namespace Statham {

template <class T>
struct JsonCodec;

// \cond
// The codec for members of records, with the functions above.
template <>
struct HALVERNAPI_EXPORT JsonCodec<Date> {
  static Expected<Date, JsonDecodeError> decodeJson(const JsonValue& json);
  static JsonValue encodeJson(Date date);
};
// \endcond

}  // namespace Statham
}  // namespace HalvernApi
