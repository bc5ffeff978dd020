#pragma once

#include "runtime/platform/Export.h"

#include <chrono>
#include <cstdint>

namespace VornPlatform {

// A moment as the clocks on the wall show it where this machine stands.
struct LocalTime {
    int year = 1970;
    int month = 1;  // 1 to 12
    int day = 1;    // 1 to 31
    int hour = 0;
    int minute = 0;
    int second = 0;
    int microsecond = 0;
    int offsetMinutes = 0;  // ahead of UTC, summer time included
};

// Any thread. A moment that the system cannot convert is given in UTC.
VORN_EXPORT LocalTime toLocalTime(std::chrono::system_clock::time_point moment);
// The same for seconds since 1970, which are not limited to the years 1677 to 2262.
VORN_EXPORT LocalTime toLocalTime(std::int64_t seconds);

// A date and a time of day, with no zone of its own.
struct CalendarTime {
    int year = 1970;
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

// The moment `seconds` after 1970-01-01 00:00 UTC as UTC shows it. Any thread.
VORN_EXPORT CalendarTime toUtc(std::int64_t seconds);

// The moment at which the clocks on the wall, summer time left aside, show
// `fields`: the C library's mktime without summer time. Values out of range are
// carried (month 13 is January of the next year). -1 when the system cannot
// convert them. Any thread.
VORN_EXPORT std::int64_t fromLocalStandardTime(const CalendarTime& fields);

}  // namespace VornPlatform
