#include "scheduler/RuvoTSTime.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/scheduler/TimeZoneScope.h"

#include <gtest/gtest.h>

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
