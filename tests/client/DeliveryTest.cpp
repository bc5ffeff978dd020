#include "client/Delivery.h"
#include "tests/client/ScriptedDaemon.h"

#include <gtest/gtest.h>

using ClientTest::delivery;
using ClientTest::i32;
using ClientTest::str;
using Ruvo::DecodeOutcome;
using Ruvo::RuvoDelivery;

namespace {

const Ruvo::RuvoListenerOptions kLimits{.maxStringBytes = 100, .maxDataBytes = 200};

DecodeOutcome decode(std::string_view bytes, RuvoDelivery& result, std::size_t& consumed) {
    return Ruvo::decodeDelivery(bytes, kLimits, result, consumed);
}

DecodeOutcome outcomeOf(std::string_view bytes) {
    RuvoDelivery result;
    std::size_t consumed = 0;
    return decode(bytes, result, consumed);
}

}  // namespace

TEST(Delivery, TakesTheFiveFieldsInOrder) {
    const std::string bytes = delivery(-7, "udp:127.0.0.1", "VornJSEvent:a", "a",
                                       std::string("\2\0\0\0", 4));
    RuvoDelivery result;
    std::size_t consumed = 0;
    ASSERT_EQ(decode(bytes + "rest", result, consumed), DecodeOutcome::Complete);
    EXPECT_EQ(consumed, bytes.size());
    EXPECT_EQ(result.handle, -7);
    EXPECT_EQ(result.sender, "udp:127.0.0.1");
    EXPECT_EQ(result.event, "VornJSEvent:a");
    EXPECT_EQ(result.message, "a");
    EXPECT_EQ(result.data, std::string("\2\0\0\0", 4));
}

TEST(Delivery, TakesEmptyFieldsAndZeroBytes) {
    const std::string zero("a\0b", 3);
    RuvoDelivery result;
    std::size_t consumed = 0;
    ASSERT_EQ(decode(delivery(0, "", zero, ""), result, consumed), DecodeOutcome::Complete);
    EXPECT_EQ(result.event, zero);
    EXPECT_EQ(result.sender + result.message + result.data, "");
}

TEST(Delivery, NeedsMoreAtEachByteBeforeTheLast) {
    const std::string bytes = delivery(1, "sender", "event", "message", "data");
    for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
        EXPECT_EQ(outcomeOf(bytes.substr(0, cut)), DecodeOutcome::NeedMore) << cut;
    }
    EXPECT_EQ(outcomeOf(bytes), DecodeOutcome::Complete);
}

TEST(Delivery, LeavesTheResultAloneWhileIncomplete) {
    RuvoDelivery result;
    result.handle = 9;
    result.sender = "x";
    std::size_t consumed = 77;
    const std::string bytes = delivery(1, "sender", "event", "message", "data");
    EXPECT_EQ(decode(bytes.substr(0, bytes.size() - 1), result, consumed),
              DecodeOutcome::NeedMore);
    EXPECT_EQ(result.handle, 9);
    EXPECT_EQ(result.sender, "x");
    EXPECT_EQ(consumed, 77U);
}

TEST(Delivery, TakesFieldsOfExactlyTheLimit) {
    EXPECT_EQ(outcomeOf(delivery(1, std::string(100, 's'), std::string(100, 'e'),
                                 std::string(100, 'm'), std::string(200, 'd'))),
              DecodeOutcome::Complete);
}

TEST(Delivery, RefusesEachFieldOverItsLimitAsSoonAsItsSizeIsThere) {
    const std::string fine = str("x");
    for (const std::int64_t size : {std::int64_t{201}, std::int64_t{0x7fffffff}, std::int64_t{-1}}) {
        const std::string bad = i32(size);
        EXPECT_EQ(outcomeOf(i32(1) + bad), DecodeOutcome::Invalid) << size;
        EXPECT_EQ(outcomeOf(i32(1) + fine + bad), DecodeOutcome::Invalid) << size;
        EXPECT_EQ(outcomeOf(i32(1) + fine + fine + bad), DecodeOutcome::Invalid) << size;
        EXPECT_EQ(outcomeOf(i32(1) + fine + fine + fine + bad), DecodeOutcome::Invalid) << size;
    }
    EXPECT_EQ(outcomeOf(i32(1) + i32(101)), DecodeOutcome::Invalid);
}

// ---- of a followed task ----------------------------------------------------------

TEST(Delivery, TakesAChangeOfATaskForItsEvent) {
    const Ruvo::RuvoListenerOptions limits{.taskChanges = true};
    const std::string bytes = i32(-7) + i32(12345) + i32(-1) + i32(42);
    RuvoDelivery result;
    std::size_t consumed = 0;
    ASSERT_EQ(Ruvo::decodeDelivery(bytes + "rest", limits, result, consumed),
              DecodeOutcome::Complete);
    EXPECT_EQ(consumed, bytes.size());
    EXPECT_EQ(result.handle, -7);
    EXPECT_EQ(result.event, "VornTSEvent:42");
    EXPECT_EQ(result.message, "42");
    EXPECT_EQ(result.sender, "");
    const std::int32_t state = -1;
    EXPECT_EQ(result.data, std::string(reinterpret_cast<const char*>(&state), sizeof state));
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_EQ(Ruvo::decodeDelivery(bytes.substr(0, size), limits, result, consumed),
                  DecodeOutcome::NeedMore)
            << size;
    }
}

TEST(Delivery, TakesNothingElseForAChangeOfATask) {
    const Ruvo::RuvoListenerOptions limits{.taskChanges = true};
    RuvoDelivery result;
    std::size_t consumed = 0;
    EXPECT_EQ(Ruvo::decodeDelivery(i32(1) + i32(12346), limits, result, consumed),
              DecodeOutcome::Invalid);
    EXPECT_EQ(Ruvo::decodeDelivery(delivery(1, "me", "VornTSEvent:1", "1"), limits, result,
                                   consumed),
              DecodeOutcome::Invalid);
}
