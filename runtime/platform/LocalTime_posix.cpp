#include "runtime/platform/LocalTime.h"

#include <time.h>

#include <algorithm>
#include <ctime>
#include <limits>

namespace VornPlatform {

LocalTime toLocalTime(std::int64_t seconds) {
    const std::time_t moment{seconds};
    std::tm fields{};
    if (::localtime_r(&moment, &fields) == nullptr) ::gmtime_r(&moment, &fields);
    LocalTime local;
    local.year = fields.tm_year + 1900;
    local.month = fields.tm_mon + 1;
    local.day = fields.tm_mday;
    local.hour = fields.tm_hour;
    local.minute = fields.tm_min;
    local.second = fields.tm_sec;
    local.offsetMinutes = static_cast<int>(fields.tm_gmtoff / 60);
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
    return std::mktime(&local);
}

}  // namespace VornPlatform
