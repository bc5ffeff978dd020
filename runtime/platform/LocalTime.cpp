#include "runtime/platform/LocalTime.h"

namespace VornPlatform {

LocalTime toLocalTime(std::chrono::system_clock::time_point moment) {
    using namespace std::chrono;
    const auto whole = floor<seconds>(moment);
    LocalTime local = toLocalTime(std::int64_t{whole.time_since_epoch().count()});
    local.microsecond = static_cast<int>(duration_cast<microseconds>(moment - whole).count());
    return local;
}

CalendarTime toUtc(std::int64_t seconds) {
    using namespace std::chrono;
    const sys_seconds moment{std::chrono::seconds(seconds)};
    const auto midnight = floor<days>(moment);
    const year_month_day date(midnight);
    const hh_mm_ss timeOfDay(moment - midnight);
    return {.year = static_cast<int>(date.year()),
            .month = static_cast<int>(static_cast<unsigned>(date.month())),
            .day = static_cast<int>(static_cast<unsigned>(date.day())),
            .hour = static_cast<int>(timeOfDay.hours().count()),
            .minute = static_cast<int>(timeOfDay.minutes().count()),
            .second = static_cast<int>(timeOfDay.seconds().count())};
}

}  // namespace VornPlatform
