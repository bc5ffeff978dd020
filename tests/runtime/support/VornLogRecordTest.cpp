#include "runtime/support/VornLogRecord.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

using namespace VornSupport;
using VornPlatform::LocalTime;

namespace {

const std::string kTime = "2026-03-01T12:30:15.123456+01:00";

std::string lineOf(std::string_view text) {
    VornLogRecord record;
    record.begin(5, false, "main");
    record.append(text);
    record.end();
    return std::string(record.line(kTime));
}

TEST(VornLogRecord, IsOneLine) {
    EXPECT_EQ(lineOf("RuvoService::go: entering"), kTime + " [main] 5 RuvoService::go: entering\n");
    EXPECT_EQ(lineOf(""), kTime + " [main] 5 \n");
}

TEST(VornLogRecord, ShowsControlCharacters) {
    EXPECT_EQ(lineOf(std::string("a\nb\r\tc\0d\x1B\x7F", 10)),
              kTime + " [main] 5 a\\nb\\r\\tc\\x00d\\x1B\\x7F\n");
    EXPECT_EQ(lineOf("\n"), kTime + " [main] 5 \\n\n");
}

TEST(VornLogRecord, KeepsOtherCharacters) {
    EXPECT_EQ(lineOf("C:\\x \xC3\xA4 ~ \xFF"), kTime + " [main] 5 C:\\x \xC3\xA4 ~ \xFF\n");
}

TEST(VornLogRecord, EscapesTheThreadNameToo) {
    VornLogRecord record;
    record.begin(0, false, "bad\nname");
    record.end();
    EXPECT_EQ(record.line(kTime), kTime + " [bad\\nname] 0 \n");
}

TEST(VornLogRecord, JoinsItsPieces) {
    VornLogRecord record;
    record.begin(9, false, "t");
    for (const char* piece : {"a", "", "b\n", "c"}) record.append(piece);
    record.end();
    EXPECT_EQ(record.line(kTime), kTime + " [t] 9 ab\\nc\n");
    EXPECT_EQ(record.body(), "[t] 9 ab\\nc");
}

TEST(VornLogRecord, SaysHowMuchOfALongTextIsMissing) {
    VornLogRecord record;
    record.begin(1, false, "t");
    record.append(std::string(VornLogRecord::kMostText - 1, 'a'));
    record.append("bcd");
    record.append("e");
    record.end();
    EXPECT_EQ(record.line(kTime), kTime + " [t] 1 " +
                                      std::string(VornLogRecord::kMostText - 1, 'a') +
                                      "b... (3 bytes more)\n");
}

TEST(VornLogRecord, MayBeUsedAgain) {
    VornLogRecord record;
    record.begin(1, false, "t");
    record.append(std::string(2 * VornLogRecord::kMostText, 'a'));
    record.end();
    record.trim();
    record.begin(2, false, "u");
    record.append("b");
    record.end();
    EXPECT_EQ(record.line(kTime), kTime + " [u] 2 b\n");
    EXPECT_EQ(record.level(), 2);
}

TEST(VornLogRecord, TakesNothingWhenItIsOff) {
    VornLogRecord record;
    record.begin(1, true, "t");
    record.append("text");
    EXPECT_TRUE(record.isOff());
    record.begin(1, false, "t");
    record.end();
    EXPECT_EQ(record.line(kTime), kTime + " [t] 1 \n");
}

TEST(VornLogClock, ShowsEveryPartOfTheTime) {
    EXPECT_EQ(VornLogClock::text({2026, 3, 1, 12, 30, 15, 123456, 60}), kTime);
    EXPECT_EQ(VornLogClock::text({987, 12, 31, 0, 5, 9, 7, 0}), "0987-12-31T00:05:09.000007+00:00");
    EXPECT_EQ(VornLogClock::text({2026, 1, 2, 3, 4, 5, 6, -210}),
              "2026-01-02T03:04:05.000006-03:30");
    EXPECT_EQ(kTime.size(), VornLogClock::kLength);
}

TEST(VornLogClock, CountsMicrosecondsWithinAndAcrossSeconds) {
    using namespace std::chrono;
    VornLogClock clock;
    const auto begin = floor<seconds>(system_clock::now());
    for (const int us : {0, 1, 999'999, 1'000'000, 1'000'001, 59'123'456, 86'400'000, 5}) {
        const auto moment = begin + microseconds(us);
        EXPECT_EQ(clock.format(moment), VornLogClock::text(VornPlatform::toLocalTime(moment)));
    }
}

}  // namespace
