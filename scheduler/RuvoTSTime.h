#pragma once

#include "runtime/platform/Export.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace RuvoService {

// The scheduler's times are seconds since 1970-01-01 00:00 UTC in 32 bits with
// sign. Everything here works in UTC, by way of the system's local-time
// conversion without summer time and the zone's offset, which cancel out. No
// value is checked; what is out of range is carried. Any thread.
using RuvoTSSeconds = std::int32_t;

// The current time, narrowed.
VORN_EXPORT RuvoTSSeconds currentTime();

// The local zone's standard-time offset from UTC in minutes, east positive, as
// the system says now.
VORN_EXPORT int utcOffsetMinutes();
// The offset that the functions below count with: measured when the engine is
// made and kept, so that a change of the zone's rules meanwhile does not move
// tasks half.
VORN_EXPORT void setUtcOffset(int minutes);
VORN_EXPORT int utcOffsetForTest();

// The moment of six values that are UTC.
VORN_EXPORT RuvoTSSeconds makeTime(int year, int month, int day, int hour, int minute, int second);
VORN_EXPORT RuvoTSSeconds addDays(RuvoTSSeconds time, int n);
// A month is four weeks, on purpose: monthly tasks keep their day of the week
// and drift against the calendar.
VORN_EXPORT RuvoTSSeconds addMonths(RuvoTSSeconds time, int n);
// From now until `time`; negative when it has passed. "Now" is a reading of the
// wall clock in milliseconds for who goes on counting from the same moment.
VORN_EXPORT std::int32_t secondsUntil(RuvoTSSeconds time);
VORN_EXPORT std::int32_t secondsUntil(RuvoTSSeconds time, std::int64_t wallMs);

// "2024-02-29 12:00:00 UTC" and "2024 02 29 12 00 00". `size` is the room,
// terminator included. Returns the text's length; 0, with an empty text and
// `size` set to what is needed, when there is too little room. A negative time
// gives as many blanks as a text has characters, whatever the room, and the
// result is one more than their number: clients know times that are none by it.
VORN_EXPORT std::size_t formatDisplayTime(RuvoTSSeconds time, std::string& text,
                                          std::int32_t& size);
VORN_EXPORT std::size_t formatRecordTime(RuvoTSSeconds time, std::string& text,
                                         std::int32_t& size);
// The same with enough room.
VORN_EXPORT std::string displayTime(RuvoTSSeconds time);
VORN_EXPORT std::string recordTime(RuvoTSSeconds time);

}  // namespace RuvoService
