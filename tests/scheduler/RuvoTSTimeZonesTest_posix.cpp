#include "scheduler/RuvoTSTime.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/scheduler/TimeZoneScope.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

using namespace RuvoService;

// The zones of the world's table, which the C library knows here.
TEST(RuvoTSTimeZones, AreThoseOfTheWorldsTable) {
    struct {
        const char* zone;
        int minutes;
    } const known[] = {{"America/New_York", -300},
                       {"Europe/Berlin", 60},
                       {"Asia/Kolkata", 330},
                       {"Australia/Lord_Howe", 630}};
    for (const auto& [zone, minutes] : known) {
        const TestSupport::TimeZoneScope scope(zone);
        for (const std::int64_t now : {1'705'320'000, 1'718'452'800}) {
            const TestSupport::TestClock clock(now);
            EXPECT_EQ(utcOffsetMinutes(), minutes) << zone << " at " << now;
        }
    }
}

// The way to a zone and back loses nothing of the largest minutes and hours.
TEST(RuvoTSTimeZones, CarryTheLargestMinutesAndHours) {
    constexpr int kMax = std::numeric_limits<int>::max();
    constexpr std::int64_t kNewYear = 1'798'761'600;  // 2027-01-01 00:00:00
    const auto narrow = [](std::int64_t seconds) { return static_cast<RuvoTSSeconds>(seconds); };
    for (const char* const zone :
         {"UTC", "America/New_York", "Europe/Berlin", "Asia/Kolkata", "Australia/Lord_Howe"}) {
        SCOPED_TRACE(zone);
        const TestSupport::TimeZoneScope scope(zone);
        const TestSupport::TestClock clock(1'718'452'800);
        EXPECT_EQ(makeTime(2027, 1, 1, 0, kMax, 0), narrow(kNewYear + std::int64_t{kMax} * 60));
        EXPECT_EQ(makeTime(2027, 1, 1, kMax, 59, 0),
                  narrow(kNewYear + std::int64_t{kMax} * 3600 + 59 * 60));
    }
}
