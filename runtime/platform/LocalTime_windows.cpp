#include "runtime/platform/LocalTime.h"

#include <windows.h>

#include <time.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <limits>

namespace VornPlatform {
namespace {

// The system counts steps of 100 ns from 1601-01-01.
constexpr std::int64_t kStepsASecond = 10'000'000;
constexpr std::int64_t kUnixEpoch = 11'644'473'600;
constexpr std::int64_t kLastSecond = std::numeric_limits<std::int64_t>::max() / kStepsASecond;

std::int64_t stepsOf(const SYSTEMTIME& time) {
    FILETIME steps{};
    ::SystemTimeToFileTime(&time, &steps);
    return static_cast<std::int64_t>(steps.dwHighDateTime) << 32 | steps.dwLowDateTime;
}

// False for moments that the system does not know: before 1601, or too late.
bool toSystemTime(std::int64_t seconds, SYSTEMTIME& utc) {
    if (seconds < -kUnixEpoch || seconds > kLastSecond - kUnixEpoch) return false;
    const std::int64_t steps = (seconds + kUnixEpoch) * kStepsASecond;
    const FILETIME fileTime{static_cast<DWORD>(steps & 0xFFFFFFFF),
                            static_cast<DWORD>(steps >> 32)};
    return ::FileTimeToSystemTime(&fileTime, &utc) != 0;
}

LocalTime inUtc(std::int64_t seconds) {
    const CalendarTime utc = toUtc(seconds);
    LocalTime local;
    local.year = utc.year;
    local.month = utc.month;
    local.day = utc.day;
    local.hour = utc.hour;
    local.minute = utc.minute;
    local.second = utc.second;
    return local;
}

}  // namespace

LocalTime toLocalTime(std::int64_t seconds) {
    SYSTEMTIME utc{};
    SYSTEMTIME fields{};
    if (!toSystemTime(seconds, utc) ||
        !::SystemTimeToTzSpecificLocalTime(nullptr, &utc, &fields)) {
        return inUtc(seconds);
    }
    LocalTime local;
    local.year = fields.wYear;
    local.month = fields.wMonth;
    local.day = fields.wDay;
    local.hour = fields.wHour;
    local.minute = fields.wMinute;
    local.second = fields.wSecond;
    local.offsetMinutes = static_cast<int>((stepsOf(fields) - stepsOf(utc)) / kStepsASecond / 60);
    return local;
}

std::int64_t fromLocalStandardTime(const CalendarTime& fields) {
    std::tm local{};
    local.tm_year = static_cast<int>(std::max<std::int64_t>(
        static_cast<std::int64_t>(fields.year) - 1900, std::numeric_limits<int>::min()));
    local.tm_mon = std::max(fields.month, std::numeric_limits<int>::min() + 1) - 1;
    local.tm_mday = fields.day;
    local.tm_hour = fields.hour;
    local.tm_min = fields.minute;
    local.tm_sec = fields.second;
    local.tm_isdst = 0;
    return ::_mktime64(&local);
}

}  // namespace VornPlatform
