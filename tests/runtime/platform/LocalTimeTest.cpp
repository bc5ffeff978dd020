#include "runtime/platform/LocalTime.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

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

// A clock of nanoseconds ends in 2262.
TEST(LocalTime, ShowsSecondsOfLaterYears) {
    for (const int late : {2261, 2300, 9999}) {
        const sys_seconds moment = sys_days(year(late) / 7 / 15) + hours(12);
        const LocalTime local = toLocalTime(std::int64_t{moment.time_since_epoch().count()});
        EXPECT_EQ(local.year, late);
        const sys_seconds shown = sys_days(year(local.year) / local.month / local.day) +
                                  hours(local.hour) + seconds(local.second);
        EXPECT_EQ(shown + minutes(local.minute - local.offsetMinutes), moment) << late;
        EXPECT_EQ(local.microsecond, 0);
    }
}

// What the system itself knows ends earlier on both sides: that is shown in UTC.
TEST(LocalTime, ShowsSecondsOfEveryYearThatIsWritten) {
    for (const int each : {1, 1500, 1600, 1601, 1602, 30'827, 30'828, 30'900, 32'767}) {
        const sys_seconds moment = sys_days(year(each) / 7 / 15) + hours(12);
        const LocalTime local = toLocalTime(std::int64_t{moment.time_since_epoch().count()});
        EXPECT_EQ(local.year, each);
        EXPECT_EQ(local.month, 7) << each;
        EXPECT_NEAR(local.day, 15, 1) << each;
        // Offsets of the days before there were zones have seconds, which are left out.
        const sys_seconds shown = sys_days(year(local.year) / local.month / local.day) +
                                  hours(local.hour) + minutes(local.minute - local.offsetMinutes) +
                                  seconds(local.second);
        EXPECT_LT(abs(shown - moment), minutes(1)) << each;
    }
}

TEST(LocalTime, CountsMonthsAndDaysFromOne) {
    const LocalTime local = toLocalTime(sys_days(year(2026) / 7 / 15) + hours(12));
    EXPECT_EQ(local.year, 2026);
    EXPECT_EQ(local.month, 7);
    EXPECT_NEAR(local.day, 15, 1);
}

std::int64_t secondsOf(const CalendarTime& fields) {
    const auto date = year(fields.year) / month(static_cast<unsigned>(fields.month)) /
                      day(static_cast<unsigned>(fields.day));
    EXPECT_TRUE(date.ok());
    return (sys_days(date) + hours(fields.hour) + minutes(fields.minute) + seconds(fields.second))
        .time_since_epoch()
        .count();
}

TEST(LocalTime, ShowsUtcForEveryMomentOfTheThirtyTwoBits) {
    for (std::int64_t moment = INT32_MIN; moment <= INT32_MAX; moment += 999'983) {
        const CalendarTime utc = toUtc(moment);
        ASSERT_EQ(secondsOf(utc), moment);
        ASSERT_LT(utc.hour, 24);
        ASSERT_LT(utc.minute, 60);
        ASSERT_LT(utc.second, 60);
    }
    const CalendarTime leap = toUtc(951'827'696);
    EXPECT_EQ(leap.year, 2000);
    EXPECT_EQ(leap.month, 2);
    EXPECT_EQ(leap.day, 29);
    EXPECT_EQ(leap.hour, 12);
    EXPECT_EQ(leap.minute, 34);
    EXPECT_EQ(leap.second, 56);
}

// Whatever the zone: in both halves of the year the same offset counts.
TEST(LocalTime, LeavesSummerTimeAsideOnTheWayBack) {
    const auto offsetAt = [](const CalendarTime& fields) {
        return fromLocalStandardTime(fields) - secondsOf(fields);
    };
    const std::int64_t winter = offsetAt({2026, 1, 15, 12, 0, 0});
    EXPECT_EQ(offsetAt({2026, 7, 15, 12, 0, 0}), winter);
    EXPECT_LE(winter, 14 * 3600);
    EXPECT_GE(winter, -14 * 3600);
}

TEST(LocalTime, CarriesWhatIsOutOfRange) {
    const auto at = [](int y, int mo, int d, int h, int mi, int s) {
        return fromLocalStandardTime({y, mo, d, h, mi, s});
    };
    EXPECT_EQ(at(2024, 13, 1, 0, 0, 0), at(2025, 1, 1, 0, 0, 0));
    EXPECT_EQ(at(2024, 0, 1, 0, 0, 0), at(2023, 12, 1, 0, 0, 0));
    EXPECT_EQ(at(2024, 2, 30, 0, 0, 0), at(2024, 3, 1, 0, 0, 0));
    EXPECT_EQ(at(2024, 3, 0, 0, 0, 0), at(2024, 2, 29, 0, 0, 0));
    EXPECT_EQ(at(2024, 1, 1, 25, 61, 61), at(2024, 1, 2, 2, 2, 1));
    EXPECT_EQ(at(2024, 1, 1, 0, -1, 0), at(2023, 12, 31, 23, 59, 0));
}

TEST(LocalTime, SurvivesEveryValue) {
    for (const int value : {INT32_MIN, INT32_MIN + 1, -1, 0, INT32_MAX}) {
        fromLocalStandardTime({value, value, value, value, value, value});
        fromLocalStandardTime({value, 1, 1, 0, 0, 0});
        fromLocalStandardTime({2024, value, 1, 0, 0, 0});
    }
    EXPECT_EQ(
        fromLocalStandardTime({INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX}),
        -1);
}

}  // namespace
