#include "client/ruvoctl/TaskTimes.h"

#include "client/ruvoctl/Session.h"

#include <gtest/gtest.h>

#include <string>

using namespace Ruvoctl;

namespace {

constexpr std::int64_t kNoon = 1'718'452'800;  // 2024-06-15T12:00:00Z, a Saturday
constexpr std::int64_t kDay = 86400;

std::int64_t at(const std::string& text) { return momentOf(text, kNoon); }

}  // namespace

TEST(TaskTimes, TakesUtcAndOffsets) {
    for (const std::string same :
         {"2024-06-15T12:00:00Z", "2024-06-15T12:00Z", "2024-06-15 12:00:00z", "2024-06-15t12:00Z",
          "2024-06-15T14:00:00+02:00", "2024-06-15T07:30:00-0430", "2024-06-16T06:00+18:00",
          "2024-06-15T14:00+02", "2024-06-15 07:00:00-05", "2024-06-15T12:00-00"}) {
        EXPECT_EQ(at(same), kNoon) << same;
    }
    EXPECT_EQ(at("1970-01-01T00:00:01Z"), 1);
    EXPECT_EQ(at("2038-01-19T03:14:08Z"), std::int64_t{1} << 31);
    EXPECT_EQ(at("2024-02-29T00:00:00Z"), 1'709'164'800);
}

TEST(TaskTimes, TakesDistancesFromNow) {
    EXPECT_EQ(at("+0s"), kNoon);
    EXPECT_EQ(at("+90s"), kNoon + 90);
    EXPECT_EQ(at("+15m"), kNoon + 900);
    EXPECT_EQ(at("+2h"), kNoon + 7200);
    EXPECT_EQ(at("+3d"), kNoon + 3 * kDay);
}

TEST(TaskTimes, RefusesWhatIsNoTime) {
    for (const std::string wrong :
         {"", " ", "now", "2024", "2024-06-15", "2024-06-15T", "2024-06-15T12", "2024-06-15T12:0",
          "2024-13-01T00:00Z", "2024-00-01T00:00Z", "2023-02-29T00:00Z", "2024-06-31T00:00",
          "2024-06-15T24:00Z", "2024-06-15T12:60Z", "2024-06-15T12:00:60Z", "2024-06-15T12:00:5Z",
          "2024-06-15T12:00ZZ", "2024-06-15T12:00 Z", "2024-06-15T12:00+1", "2024-06-15T12:00+19:00",
          "2024-06-15T12:00+01:60", "2024-06-15T12:00+", "2024-06-15T12:00+19",
          "2024-06-15T12:00+01:", "2024-06-15T12:00+01:0", "2024-06-15T12:00+010", "-024-06-15T12:00Z", "2024-6-15T12:00Z", "24:00", "12:5", "1:00",
          "12:00+01:00", "12:00x", "+", "+s", "+5", "+-5s", "+5x", "+5 s", "+99999999999999999999s",
          "+99999999999d", "++5s", "5s"}) {
        EXPECT_THROW(at(wrong), UsageError) << wrong;
    }
}

TEST(TaskTimes, ConvertsEachDay) {
    for (std::int64_t day = -30000; day < 30000; ++day) {
        const std::int64_t moment = day * kDay + (day + 30000) % kDay;
        ASSERT_EQ(momentOf(utcOf(moment)), moment);
    }
    EXPECT_EQ(utcText(-1), "1969-12-31T23:59:59Z");
    EXPECT_EQ(utcText(kNoon), "2024-06-15T12:00:00Z");
}
