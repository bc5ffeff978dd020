// In zones of our choice.

#include "client/ruvoctl/TaskTimes.h"

#include "tests/scheduler/TimeZoneScope.h"

#include <gtest/gtest.h>

#include <string>

using namespace Ruvoctl;

namespace {

constexpr std::int64_t kNoon = 1'718'452'800;  // 2024-06-15T12:00:00Z, a Saturday
constexpr std::int64_t kDay = 86400;

std::int64_t at(const std::string& text) { return momentOf(text, kNoon); }

}  // namespace

TEST(TaskTimes, TakesLocalTimeWithSummerTime) {
    const TestSupport::TimeZoneScope berlin("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(at("2024-06-15T14:00"), kNoon);
    EXPECT_EQ(at("2024-01-15T13:00:00"), at("2024-01-15T12:00:00Z"));
    EXPECT_EQ(localText(kNoon), "2024-06-15T14:00:00+02:00");
    EXPECT_EQ(bothTexts(at("2024-01-15T12:00:00Z")),
              "2024-01-15T13:00:00+01:00 (2024-01-15T12:00:00Z)");
}

// At the end of summer time: 02:00 to 03:00 comes twice.
TEST(TaskTimes, TakesTheFirstOfATimeThatComesTwice) {
    const TestSupport::TimeZoneScope berlin("CET-1CEST,M3.5.0,M10.5.0/3");
    // Whatever was asked before.
    for (const char* const before : {"2024-01-15T12:00", "2024-07-15T12:00"}) {
        at(before);
        EXPECT_EQ(at("2024-10-27T02:30"), at("2024-10-27T00:30Z")) << before;
        EXPECT_EQ(at("2024-10-27T02:30+01:00"), at("2024-10-27T01:30Z"));
        EXPECT_EQ(at("2024-10-27T01:59"), at("2024-10-26T23:59Z"));
        EXPECT_EQ(at("2024-10-27T03:00"), at("2024-10-27T02:00Z"));
    }
    const TestSupport::TimeZoneScope lordHowe("<+1030>-10:30<+11>-11,M10.1.0,M4.1.0");
    EXPECT_EQ(at("2024-04-07T01:45"), at("2024-04-06T14:45Z"));
}

// At its beginning: 02:00 to 03:00 is left out.
TEST(TaskTimes, MovesATimeThatIsLeapedOverByTheLeap) {
    const TestSupport::TimeZoneScope berlin("CET-1CEST,M3.5.0,M10.5.0/3");
    for (const char* const before : {"2024-01-15T12:00", "2024-07-15T12:00"}) {
        at(before);
        EXPECT_EQ(localText(at("2024-03-31T02:30")), "2024-03-31T03:30:00+02:00") << before;
        EXPECT_EQ(at("2024-03-31T01:59:59"), at("2024-03-31T00:59:59Z"));
        EXPECT_EQ(at("2024-03-31T03:00"), at("2024-03-31T01:00Z"));
    }
    const TestSupport::TimeZoneScope newYork("EST5EDT,M3.2.0,M11.1.0");
    EXPECT_EQ(localText(at("2024-03-10T02:15")), "2024-03-10T03:15:00-04:00");
}

// A clock of nanoseconds ends in 2262 and begins in 1677.
TEST(TaskTimes, TakesLocalTimesOfEveryYear) {
    const TestSupport::TimeZoneScope berlin("CET-1CEST,M3.5.0,M10.5.0/3");
    for (const std::string year : {"0000", "1500", "2300", "9999"}) {
        EXPECT_EQ(at(year + "-01-15T12:00"), at(year + "-01-15T11:00Z")) << year;
    }
    // Summer time is a thing of late.
    EXPECT_EQ(at("1500-07-15T12:00"), at("1500-07-15T11:00Z"));
    EXPECT_EQ(at("2300-07-15T12:00"), at("2300-07-15T10:00Z"));
    EXPECT_EQ(at("9999-07-15T12:00"), at("9999-07-15T10:00Z"));
    EXPECT_EQ(localText(at("2300-07-15T12:00")), "2300-07-15T12:00:00+02:00");
}

TEST(TaskTimes, ShowsZonesWestOfGreenwich) {
    const TestSupport::TimeZoneScope zone("NST3:30");
    EXPECT_EQ(localText(kNoon), "2024-06-15T08:30:00-03:30");
    EXPECT_EQ(at("2024-06-15T08:30"), kNoon);
}

TEST(TaskTimes, TakesATimeOfDayForTheNextOne) {
    const TestSupport::TimeZoneScope zone("XXX-2");  // two hours ahead: it is 14:00
    EXPECT_EQ(at("14:00:01"), kNoon + 1);
    EXPECT_EQ(at("14:00"), kNoon + kDay);
    EXPECT_EQ(at("13:59"), kNoon + kDay - 60);
    EXPECT_EQ(at("15:30"), kNoon + 5400);
    EXPECT_EQ(at("12:00:01Z"), kNoon + 1);
    EXPECT_EQ(at("12:00Z"), kNoon + kDay);
    EXPECT_EQ(at("11:00Z"), kNoon + kDay - 3600);
    // Over the end of a month, and where the day is another one than in UTC.
    const std::int64_t late = at("2024-06-30T23:30:00Z");
    EXPECT_EQ(momentOf("01:31", late), late + 60);
    EXPECT_EQ(momentOf("01:29", late), late + kDay - 60);
    EXPECT_EQ(momentOf("00:00Z", late), late + 1800);
}
