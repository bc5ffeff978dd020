#include "scheduler/RuvoTSTime.h"

#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/scheduler/TimeZoneScope.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using namespace RuvoService;
using TestSupport::kNoon;
using TestSupport::TestClock;
using TestSupport::TimeZoneScope;

namespace {

constexpr std::int32_t kDay = 86400;
constexpr std::int32_t kMin = INT32_MIN;
constexpr std::int32_t kMax = INT32_MAX;

class RuvoTSTimeTest : public testing::Test {
protected:
    TestClock clock_;
};

TEST_F(RuvoTSTimeTest, TakesSixValuesAsUtc) {
    EXPECT_EQ(makeTime(1970, 1, 1, 0, 0, 1), 1);
    EXPECT_EQ(makeTime(2024, 6, 15, 12, 0, 0), kNoon);
    EXPECT_EQ(makeTime(2024, 2, 29, 23, 59, 59), 1'709'251'199);
    EXPECT_EQ(makeTime(2038, 1, 19, 3, 14, 7), kMax);
}

TEST_F(RuvoTSTimeTest, CarriesValuesOutOfRange) {
    EXPECT_EQ(displayTime(makeTime(2024, 13, 1, 0, 0, 0)), "2025-01-01 00:00:00 UTC");
    EXPECT_EQ(displayTime(makeTime(2024, 0, 1, 0, 0, 0)), "2023-12-01 00:00:00 UTC");
    EXPECT_EQ(displayTime(makeTime(2023, 2, 29, 0, 0, 0)), "2023-03-01 00:00:00 UTC");
    EXPECT_EQ(displayTime(makeTime(2024, 1, 0, 0, 0, 0)), "2023-12-31 00:00:00 UTC");
    EXPECT_EQ(displayTime(makeTime(2024, 1, 1, 24, 60, 60)), "2024-01-02 01:01:00 UTC");
    EXPECT_EQ(displayTime(makeTime(2024, 1, 1, 0, 0, -1)), "2023-12-31 23:59:59 UTC");
}

TEST_F(RuvoTSTimeTest, SurvivesEveryValue) {
    for (const int a : {kMin, -1, 0, 1, kMax}) {
        for (const int b : {kMin, 0, kMax}) {
            makeTime(a, b, a, b, a, b);
            makeTime(2024, 1, 1, 0, a, b);
            addDays(a, b);
            addMonths(a, b);
            secondsUntil(a);
            displayTime(a);
            recordTime(b);
        }
    }
}

TEST_F(RuvoTSTimeTest, AddsDaysAtTheSameTimeOfDay) {
    EXPECT_EQ(addDays(kNoon, 1), kNoon + kDay);
    EXPECT_EQ(addDays(kNoon, 7), kNoon + 7 * kDay);
    EXPECT_EQ(addDays(kNoon, 0), kNoon);
    EXPECT_EQ(addDays(kNoon, -1), kNoon - kDay);
}

TEST_F(RuvoTSTimeTest, TakesAMonthForFourWeeks) {
    const auto january = makeTime(2023, 1, 31, 12, 0, 0);
    const auto february = addMonths(january, 1);
    EXPECT_EQ(displayTime(february), "2023-02-28 12:00:00 UTC");
    EXPECT_EQ(displayTime(addMonths(february, 1)), "2023-03-28 12:00:00 UTC");
    EXPECT_EQ(displayTime(addMonths(january, 2)), "2023-03-28 12:00:00 UTC");
    EXPECT_EQ(displayTime(addMonths(makeTime(2024, 1, 31, 12, 0, 0), 1)),
              "2024-02-28 12:00:00 UTC");
}

TEST_F(RuvoTSTimeTest, CountsFromTheFullSecond) {
    EXPECT_EQ(currentTime(), kNoon);
    clock_.advanceMs(999);
    EXPECT_EQ(currentTime(), kNoon);
    EXPECT_EQ(secondsUntil(kNoon + 5), 5);
    clock_.advanceMs(1);
    EXPECT_EQ(currentTime(), kNoon + 1);
    EXPECT_EQ(secondsUntil(kNoon + 5), 4);
    EXPECT_EQ(secondsUntil(kNoon + 1), 0);
    EXPECT_EQ(secondsUntil(kNoon - 9), -10);
}

// A time so long past that the distance takes more than 32 bits is no time to come.
TEST_F(RuvoTSTimeTest, KeepsToTheLimitsOfItsNumbers) {
    EXPECT_EQ(secondsUntil(kMin), kMin);
    const TestClock before1970(-kDay);
    EXPECT_EQ(secondsUntil(kMax), kMax);
}

// By 2^32 seconds, which is past or yet to come.
TEST_F(RuvoTSTimeTest, TakesTimesBeyondItsNumbersForOthers) {
    EXPECT_EQ(makeTime(2038, 1, 19, 3, 14, 8), kMin);
    EXPECT_EQ(makeTime(2040, 6, 1, 0, 0, 0), -2'072'845'696);  // 1904-04-25 17:31:44
    EXPECT_EQ(makeTime(2106, 2, 7, 6, 28, 15), -1);
    EXPECT_EQ(makeTime(2106, 2, 7, 6, 28, 16), 0);
    EXPECT_EQ(makeTime(2170, 6, 1, 0, 0, 0), makeTime(2034, 4, 24, 17, 31, 44));
}

TEST_F(RuvoTSTimeTest, NarrowsTheCurrentTime) {
    const TestClock before1970(-1);
    EXPECT_EQ(currentTime(), -1);
    const TestClock after2038(std::int64_t{1} << 31);
    EXPECT_EQ(currentTime(), kMin);
}

TEST_F(RuvoTSTimeTest, FormatsForDisplay) {
    std::string text = "before";
    std::int32_t size = 100;
    EXPECT_EQ(formatDisplayTime(kNoon, text, size), 23u);
    EXPECT_EQ(text, "2024-06-15 12:00:00 UTC");
    EXPECT_EQ(size, 100);
    EXPECT_EQ(formatDisplayTime(0, text, size), 23u);
    EXPECT_EQ(text, "1970-01-01 00:00:00 UTC");
    EXPECT_EQ(displayTime(kMax), "2038-01-19 03:14:07 UTC");
}

TEST_F(RuvoTSTimeTest, FormatsForRecords) {
    std::string text;
    std::int32_t size = 20;
    EXPECT_EQ(formatRecordTime(makeTime(2024, 2, 3, 4, 5, 6), text, size), 19u);
    EXPECT_EQ(text, "2024 02 03 04 05 06");
    EXPECT_EQ(size, 20);
    EXPECT_EQ(recordTime(kNoon), "2024 06 15 12 00 00");
}

TEST_F(RuvoTSTimeTest, SaysHowMuchRoomATextNeeds) {
    std::string text = "before";
    for (const std::int32_t little : {kMin, -1, 0, 1, 23}) {
        std::int32_t size = little;
        EXPECT_EQ(formatDisplayTime(kNoon, text, size), 0u) << little;
        EXPECT_EQ(size, 24) << little;
        EXPECT_EQ(text, "") << little;
    }
    std::int32_t size = 24;
    EXPECT_EQ(formatDisplayTime(kNoon, text, size), 23u);
    size = 19;
    EXPECT_EQ(formatRecordTime(kNoon, text, size), 0u);
    EXPECT_EQ(size, 20);
    EXPECT_EQ(formatRecordTime(kNoon, text, size), 19u);
}

TEST_F(RuvoTSTimeTest, GivesBlanksForTimesBefore1970) {
    for (const std::int32_t time : {-1, -kNoon, kMin}) {
        std::string text;
        std::int32_t size = 3;
        EXPECT_EQ(formatDisplayTime(time, text, size), 24u);
        EXPECT_EQ(text, std::string(23, ' '));
        EXPECT_EQ(formatRecordTime(time, text, size), 20u);
        EXPECT_EQ(text, std::string(19, ' '));
        EXPECT_EQ(size, 3);
    }
}

// ---- zones -----------------------------------------------------------------------

struct Season {
    const char* name;
    std::int32_t now;
};

constexpr Season kSeasons[] = {{"winter", 1'705'320'000}, {"summer", 1'718'452'800}};

// A system that does not know a zone takes it for one of its own; the results
// must not depend on it.
constexpr const char* kZones[] = {"UTC",         "America/New_York",    "Europe/Berlin",
                                  "Asia/Kolkata", "Australia/Lord_Howe", "EST5EDT",
                                  "CET-1CEST",   "IST-5:30",            "NST3:30NDT"};

TEST(RuvoTSTimeZones, GiveTheSameResultsInUtc) {
    for (const char* const zone : kZones) {
        const TimeZoneScope scope(zone);
        for (const Season& season : kSeasons) {
            SCOPED_TRACE(std::string(zone) + " in " + season.name);
            const TestClock clock(season.now);
            EXPECT_EQ(makeTime(2024, 1, 15, 12, 0, 0), 1'705'320'000);
            EXPECT_EQ(makeTime(2024, 6, 15, 12, 0, 0), 1'718'452'800);
            EXPECT_EQ(makeTime(2024, 13, 1, 0, 0, 0), 1'735'689'600);
            EXPECT_EQ(currentTime(), season.now);
            EXPECT_EQ(secondsUntil(season.now + 61), 61);
            EXPECT_EQ(displayTime(1'718'452'800), "2024-06-15 12:00:00 UTC");
            EXPECT_EQ(recordTime(1'705'320'000), "2024 01 15 12 00 00");
        }
    }
}

// Through a whole year by the hour: the hours that summer time leaves out or
// has twice are no exception.
TEST(RuvoTSTimeZones, MoveNoHourOfTheYear) {
    for (const char* const zone : kZones) {
        const TimeZoneScope scope(zone);
        for (const Season& season : kSeasons) {
            SCOPED_TRACE(std::string(zone) + " in " + season.name);
            const TestClock clock(season.now);
            for (std::int32_t hour = 0; hour < 366 * 24; hour += 5) {
                ASSERT_EQ(makeTime(2024, 1, 1, hour, 30, 0), 1'704'067'200 + hour * 3600 + 1800);
            }
            for (std::int32_t time = 1'704'067'200; time < 1'735'689'600; time += 7 * 3601) {
                ASSERT_EQ(addDays(time, 1), time + kDay);
                ASSERT_EQ(addDays(time, 7), time + 7 * kDay);
                ASSERT_EQ(addMonths(time, 1), time + 28 * kDay);
            }
        }
    }
}

TEST(RuvoTSTimeZones, AreMeasuredWithoutSummerTime) {
    struct {
        const char* zone;
        int minutes;
    } const known[] = {{"UTC", 0}, {"EST5EDT", -300}, {"CET-1CEST", 60}, {"IST-5:30", 330}};
    for (const auto& [zone, minutes] : known) {
        const TimeZoneScope scope(zone);
        for (const Season& season : kSeasons) {
            const TestClock clock(season.now);
            EXPECT_EQ(utcOffsetMinutes(), minutes) << zone << " in " << season.name;
        }
    }
}

// What was measured is kept, whatever the system says later.
TEST(RuvoTSTimeZones, KeepTheMeasuredOffset) {
    const TestClock clock;
    setUtcOffset(17);
    EXPECT_EQ(utcOffsetForTest(), 17);
    setUtcOffset(utcOffsetMinutes() + 17);
    EXPECT_EQ(makeTime(2024, 6, 15, 12, 0, 0), kNoon + 17 * 60);
}

}  // namespace
