#include "runtime/platform/LocalTime.h"

#include <gtest/gtest.h>

#include <chrono>

using namespace VornPlatform;
using namespace std::chrono;

namespace {

// The same moment, reckoned back without the system's help.
system_clock::time_point back(const LocalTime& local) {
    const auto date = year(local.year) / month(static_cast<unsigned>(local.month)) /
                      day(static_cast<unsigned>(local.day));
    EXPECT_TRUE(date.ok());
    return sys_days(date) + hours(local.hour) + minutes(local.minute - local.offsetMinutes) +
           seconds(local.second) + microseconds(local.microsecond);
}

TEST(LocalTime, IsTheMomentLessItsOffset) {
    const auto now = floor<microseconds>(system_clock::now());
    // Over two years in odd steps: every season, month end and hour of the day.
    for (auto moment = now; moment < now + days(731); moment += hours(7) + microseconds(777'777)) {
        const LocalTime local = toLocalTime(moment);
        ASSERT_EQ(back(local), moment);
        ASSERT_LE(local.offsetMinutes, 14 * 60);
        ASSERT_GE(local.offsetMinutes, -12 * 60);
    }
}

TEST(LocalTime, ShowsMicrosecondsBeforeTheYear1970Too) {
    const auto moment = sys_days(year(1969) / 12 / 31) + hours(11) + microseconds(250'000);
    const LocalTime local = toLocalTime(moment);
    EXPECT_EQ(local.microsecond, 250'000);
    EXPECT_EQ(back(local), moment);
}

TEST(LocalTime, CountsMonthsAndDaysFromOne) {
    const LocalTime local = toLocalTime(sys_days(year(2026) / 7 / 15) + hours(12));
    EXPECT_EQ(local.year, 2026);
    EXPECT_EQ(local.month, 7);
    EXPECT_NEAR(local.day, 15, 1);
}

}  // namespace
