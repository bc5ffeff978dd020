#include "runtime/net/VornStreamConnection.h"

#include "runtime/net/VornNetLimits.h"
#include "runtime/net/WireCodec.h"
#include "runtime/support/VornEvent.h"
#include "tests/runtime/net/ScriptedConnection.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <thread>

using VornSupport::VornException;

namespace {

std::string encoded(const std::string& text) {
    std::string bytes;
    VornNet::appendString(bytes, text);
    return bytes;
}

std::string encoded(std::int32_t value) {
    std::string bytes;
    VornNet::appendInt(bytes, value);
    return bytes;
}

std::string raw(VornNet::VornConnection& connection, int length, bool all) {
    std::string bytes(static_cast<std::size_t>(length), '?');
    int count = -1;
    connection.read(bytes.data(), length, count, all);
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
}

void put(VornNet::VornConnection& connection, std::string_view bytes) {
    int count = -1;
    connection.write(bytes.data(), static_cast<int>(bytes.size()), count);
    EXPECT_EQ(count, static_cast<int>(bytes.size()));
}

std::string messageOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const VornException& e) {
        return e.getMessage();
    }
    return "nothing was thrown";
}

// Restores the limits that a test changes.
struct LimitScope {
    VornNet::VornNetLimits& limits = VornNet::VornNetLimits::getInstance();
    const std::uint32_t strings = limits.stringBytes;
    const std::uint32_t blocks = limits.blockBytes;
    ~LimitScope() {
        limits.stringBytes = strings;
        limits.blockBytes = blocks;
    }
};

}  // namespace

// ---- what goes out -----------------------------------------------------------

TEST(VornStreamConnection, WritesIntegersBigEndian) {
    ScriptedConnection c;
    c.writeInt(0x01020304);
    c.writeInt2(-2);
    c.writeInt3(INT_MIN);
    c.flush();
    EXPECT_EQ(c.wire(), std::string("\x01\x02\x03\x04\xff\xff\xff\xfe\x80\0\0\0", 12));
}

TEST(VornStreamConnection, WritesStringsBehindTheirByteCount) {
    ScriptedConnection c;
    c.writeString("raid");
    c.writeString("");
    c.writeString(std::string("a\0\n", 3));
    c.flush();
    EXPECT_EQ(c.wire(), std::string("\0\0\0\4raid\0\0\0\0\0\0\0\3a\0\n", 19));
}

TEST(VornStreamConnection, HoldsOneAnswerUntilFlush) {
    ScriptedConnection c;
    c.writeInt(1);
    c.writeString("two");
    put(c, "three");
    EXPECT_TRUE(c.sent.empty());
    c.flush();
    EXPECT_EQ(c.sent.size(), 1U);
    EXPECT_EQ(c.wire(), encoded(1) + encoded("two") + "three");
    c.flush();
    EXPECT_EQ(c.sent.size(), 1U) << "nothing was held";
}

TEST(VornStreamConnection, SendsWhen16KiBAreHeld) {
    ScriptedConnection c;
    put(c, std::string(16 * 1024 - 1, 'x'));
    EXPECT_TRUE(c.sent.empty());
    put(c, "y");
    ASSERT_EQ(c.sent.size(), 1U);
    EXPECT_EQ(c.sent[0].size(), 16U * 1024);
    EXPECT_EQ(c.sent[0].back(), 'y');
}

TEST(VornStreamConnection, SendsALargeWriteWithWhatIsHeldAndWithoutCopyingIt) {
    ScriptedConnection c;
    const std::string large(100'000, 'z');
    c.writeInt(7);
    put(c, large);
    ASSERT_EQ(c.sent.size(), 1U);
    EXPECT_EQ(c.firstOfLastSend, encoded(7));
    EXPECT_EQ(c.secondOfLastSend, large.data());
    c.writeString(large);
    ASSERT_EQ(c.sent.size(), 2U);
    EXPECT_EQ(c.sent[1], encoded(large));
}

TEST(VornStreamConnection, SendsWhatIsHeldBeforeItWaitsForThePeer) {
    ScriptedConnection c({encoded(5)});
    c.writeString("question");
    EXPECT_EQ(c.readInt(), 5);
    EXPECT_EQ(c.wire(), encoded("question"));
}

TEST(VornStreamConnection, KeepsHoldingWhileThePeersBytesAreAlreadyHere) {
    ScriptedConnection c({encoded(1) + encoded(2)});
    EXPECT_EQ(c.readInt(), 1);
    c.writeInt(10);
    EXPECT_EQ(c.readInt(), 2);
    EXPECT_TRUE(c.sent.empty());
}

TEST(VornStreamConnection, SendsAtOnceInRawMode) {
    ScriptedConnection c;
    c.setRawMode(true);
    put(c, "+\r\n");
    c.writeInt(1);
    EXPECT_EQ(c.sent, (std::vector<std::string>{"+\r\n", encoded(1)}));
    c.setRawMode(false);
    c.writeInt(2);
    EXPECT_EQ(c.sent.size(), 2U);
}

TEST(VornStreamConnection, SendsWhatIsHeldWhenRawModeBegins) {
    ScriptedConnection c;
    c.writeInt(1);
    c.setRawMode(true);
    EXPECT_EQ(c.wire(), encoded(1));
}

TEST(VornStreamConnection, RefusesANegativeWrite) {
    ScriptedConnection c;
    int count = 5;
    EXPECT_THROW(c.write("x", -1, count), VornException);
    EXPECT_EQ(count, 0);
}

// ---- what comes in -----------------------------------------------------------

TEST(VornStreamConnection, ReadsEveryTypedValue) {
    ScriptedConnection c({std::string("\x1e\x61\xff\xff\xff\xff\xff\xff\xff\xfe", 10) +
                          encoded("Scheduler") + "raw"});
    EXPECT_EQ(c.readUnsignedShort(), 7777);
    EXPECT_EQ(c.readUnsigned(), 0xffffffffU);
    EXPECT_EQ(c.readInt(), -2);
    std::string name = "what was here before";
    c.readString(name);
    EXPECT_EQ(name, "Scheduler");
    EXPECT_EQ(raw(c, 3, true), "raw");
}

TEST(VornStreamConnection, ReadsValuesThatComeByteByByte) {
    const std::string all = std::string("\x12\x34", 2) + encoded(-5) + encoded("ab") + "xyz";
    std::deque<std::string> bytes;
    for (const char byte : all) bytes.emplace_back(1, byte);
    ScriptedConnection c(bytes);
    EXPECT_EQ(c.readUnsignedShort(), 0x1234);
    EXPECT_EQ(c.readInt(), -5);
    std::string text;
    c.readString(text);
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(raw(c, 3, true), "xyz");
}

// Each value is right or its read throws: nothing is made up from half a value.
TEST(VornStreamConnection, ThrowsWhereverTheInputIsCutOff) {
    const std::string all = std::string("\0\1", 2) + encoded(99) + encoded("name") + "1234";
    for (std::size_t cut = 0; cut < all.size(); ++cut) {
        ScriptedConnection c({all.substr(0, cut)});
        if (cut == 0) c.arrivals.clear();
        std::size_t whole = 0;
        try {
            EXPECT_EQ(c.readUnsignedShort(), 1);
            whole = 2;
            EXPECT_EQ(c.readInt(), 99);
            whole = 6;
            std::string text;
            c.readString(text);
            EXPECT_EQ(text, "name");
            whole = 14;
            raw(c, 4, true);
            FAIL() << "read to the end with " << cut << " bytes";
        } catch (const VornException& e) {
            EXPECT_EQ(e.getMessage(), "script:1: the peer has closed the connection");
        }
        EXPECT_LE(whole, cut);
        EXPECT_EQ(whole, cut < 2 ? 0U : cut < 6 ? 2U : cut < 14 ? 6U : 14U);
    }
}

TEST(VornStreamConnection, AnswersARequestWithOneReceiveAndOneSend) {
    const std::string request = std::string("\0\1\x1e\x61", 4) + encoded("JobStatus") +
                                encoded("RUVO_JS_CREATE") + encoded(3) + encoded(4);
    ScriptedConnection c({request, request});
    for (int round = 1; round <= 2; ++round) {
        c.readUnsignedShort();
        c.readUnsignedShort();
        std::string text;
        c.readString(text);
        c.readString(text);
        EXPECT_EQ(c.readInt(), 3);
        EXPECT_EQ(c.readInt(), 4);
        c.writeInt(0);
        c.writeString("done");
        c.flush();
        EXPECT_EQ(c.receives, round);
        EXPECT_EQ(c.sent.size(), static_cast<std::size_t>(round));
    }
    EXPECT_EQ(c.looks, 0);
}

TEST(VornStreamConnection, ReadsWhatIsThereWhenNotAllIsAskedFor) {
    ScriptedConnection c({"abc", "def"});
    EXPECT_EQ(raw(c, 100, false), "abc");
    EXPECT_EQ(raw(c, 2, false), "de");
    EXPECT_EQ(raw(c, 2, false), "f");
    EXPECT_THROW(raw(c, 1, false), VornException);
}

TEST(VornStreamConnection, ReadsAllThatIsAskedForOverManyArrivals) {
    std::string large;
    std::deque<std::string> pieces;
    for (int i = 0; i < 300; ++i) {
        pieces.emplace_back(static_cast<std::size_t>(i), static_cast<char>('a' + i % 26));
        large += pieces.back();
    }
    pieces.pop_front();  // the empty one
    ScriptedConnection c(pieces);
    EXPECT_EQ(raw(c, static_cast<int>(large.size()), true), large);
}

TEST(VornStreamConnection, CountsWhatCameBeforeTheCut) {
    ScriptedConnection c({"abc"});
    char buffer[10];
    int count = -1;
    EXPECT_THROW(c.read(buffer, 10, count, true), VornException);
    EXPECT_EQ(count, 3);
}

TEST(VornStreamConnection, ReadsNothingForLengthZeroAndRefusesNegativeOnes) {
    ScriptedConnection c({"abc"});
    EXPECT_EQ(raw(c, 0, true), "");
    EXPECT_EQ(raw(c, 0, false), "");
    EXPECT_EQ(c.receives, 0);
    char byte;
    int count = 7;
    EXPECT_THROW(c.read(&byte, -1, count, true), VornException);
    EXPECT_EQ(count, 0);
}

// ---- limits ------------------------------------------------------------------

TEST(VornStreamConnection, RefusesAStringOverTheLimitBeforeItAllocates) {
    LimitScope scope;
    scope.limits.stringBytes = 10;
    ScriptedConnection fits({encoded("0123456789")});
    std::string text;
    fits.readString(text);
    EXPECT_EQ(text, "0123456789");

    ScriptedConnection over({encoded("0123456789a")});
    EXPECT_EQ(messageOf([&] { over.readString(text); }),
              "script:1: a string of 11 bytes is refused; "
              "\"ruvod.limits.string-bytes\" allows 10");

    ScriptedConnection huge({std::string("\xff\xff\xff\xff", 4)});
    std::string fresh;
    EXPECT_THROW(huge.readString(fresh), VornException);
    EXPECT_LE(fresh.capacity(), 64U);
}

TEST(VornStreamConnection, AllocatesAStringAsItsBytesArrive) {
    std::string declared;
    VornNet::append32(declared, 1048576);
    ScriptedConnection c({declared, std::string(1000, 'x')});
    std::string text;
    EXPECT_THROW(c.readString(text), VornException);
    EXPECT_LE(text.capacity(), 128U * 1024);
}

TEST(VornConnection, ReadsABlockAndRefusesImpossibleLengths) {
    LimitScope scope;
    scope.limits.blockBytes = 200'000;
    const std::string bytes(200'000, 'b');
    ScriptedConnection c({bytes + "rest"});
    EXPECT_EQ(VornNet::readBlock(c, 200'000, "event data"), bytes);
    EXPECT_EQ(VornNet::readBlock(c, 0, "event data"), "");
    EXPECT_EQ(raw(c, 4, true), "rest");

    EXPECT_EQ(messageOf([&] { VornNet::readBlock(c, 200'001, "event data"); }),
              "event data: a block of 200001 bytes is refused; "
              "\"ruvod.limits.block-bytes\" allows 0 to 200000");
    EXPECT_EQ(messageOf([&] { VornNet::readBlock(c, -1, "blob"); }),
              "blob: a block of -1 bytes is refused; "
              "\"ruvod.limits.block-bytes\" allows 0 to 200000");
}

TEST(VornConnection, ThrowsWhenABlockIsCutOff) {
    ScriptedConnection c({std::string(70'000, 'b')});
    EXPECT_THROW(VornNet::readBlock(c, 70'001, "event data"), VornException);
}

// ---- memory ------------------------------------------------------------------

TEST(VornStreamConnection, TakesNoBuffersBeforeTraffic) {
    ScriptedConnection c;
    EXPECT_EQ(c.bufferBytesForTest(), 0U);
    EXPECT_LE(sizeof(VornNet::VornStreamConnection), 256U);
}

TEST(VornStreamConnection, WaitsInASmallBuffer) {
    ScriptedConnection c({encoded(1)});
    EXPECT_EQ(c.readInt(), 1);
    EXPECT_LE(c.bufferBytesForTest(), 512U);
}

TEST(VornStreamConnection, GivesLargeBuffersBackBeforeItWaits) {
    std::string many;
    for (int i = 0; i < 5000; ++i) many += encoded(i);
    ScriptedConnection c({many, encoded(-1)});
    for (int i = 0; i < 5000; ++i) ASSERT_EQ(c.readInt(), i);
    EXPECT_GT(c.bufferBytesForTest(), 10'000U) << "bulk is read in large pieces";
    EXPECT_LE(c.receives, 3);
    EXPECT_EQ(c.readInt(), -1);
    EXPECT_LE(c.bufferBytesForTest(), 512U);
    EXPECT_EQ(c.roomOfWaits.back(), 512U);
}

// The last receive filled the buffer, so more is likely there: a look decides.
TEST(VornStreamConnection, LooksBeforeItGivesUpABufferThatWasJustFilled) {
    ScriptedConnection c({std::string(512 + 16 * 1024, 'x')});
    c.stalled = true;
    raw(c, 1, true);
    for (int i = 1; i < 512 + 16 * 1024; ++i) raw(c, 1, true);
    EXPECT_GE(c.bufferBytesForTest(), 16U * 1024);
    EXPECT_THROW(c.readInt(), VornException);
    EXPECT_EQ(c.looks, 1);
    EXPECT_EQ(c.roomOfWaits.back(), 512U);
}

TEST(VornStreamConnection, GivesALargeOutputBufferBackAfterFlush) {
    ScriptedConnection c;
    put(c, std::string(10'000, 'x'));
    EXPECT_GE(c.bufferBytesForTest(), 10'000U);
    c.flush();
    EXPECT_LE(c.bufferBytesForTest(), 512U);
}

TEST(VornStreamConnection, ReadsLargePiecesPastItsBuffer) {
    ScriptedConnection c({std::string(50'000, 'x')});
    EXPECT_EQ(raw(c, 50'000, true).size(), 50'000U);
    EXPECT_EQ(c.receives, 1);
    EXPECT_EQ(c.bufferBytesForTest(), 0U);
}

// ---- the end -----------------------------------------------------------------

TEST(VornStreamConnection, SaysWhyTheStreamBroke) {
    ScriptedConnection c({"ab"});
    c.breaks = VornPlatform::OsError(5);
    try {
        c.readInt();
        FAIL();
    } catch (const VornException& e) {
        EXPECT_EQ(e.getCode(), 5);
        EXPECT_EQ(e.getMessage().find("script:1: the connection was lost: "), 0U);
    }
}

TEST(VornStreamConnection, FailsAfterASendHasFailed) {
    ScriptedConnection c({encoded(1)});
    c.failSends = true;
    c.writeInt(1);
    EXPECT_THROW(c.flush(), VornException);
    c.failSends = false;
    EXPECT_THROW(c.writeInt(2), VornException);
    EXPECT_THROW(c.flush(), VornException);
    EXPECT_THROW(c.readInt(), VornException);
    EXPECT_TRUE(c.isPeerGone());
    c.close();
    EXPECT_TRUE(c.sent.empty()) << "half an answer must not follow the broken one";
}

TEST(VornStreamConnection, FailsInEveryOperationAfterAbort) {
    ScriptedConnection c({encoded(1)});
    c.writeInt(1);
    c.abort();
    EXPECT_EQ(c.breakCalls, 1);
    EXPECT_EQ(messageOf([&] { c.readInt(); }), "script:1: the connection was aborted");
    char buffer[8];
    int length = 8;
    bool closed = false;
    std::string text;
    EXPECT_THROW(c.writeInt(1), VornException);
    EXPECT_THROW(c.writeString("x"), VornException);
    EXPECT_THROW(c.write("x", 1, length), VornException);
    EXPECT_THROW(c.flush(), VornException);
    EXPECT_THROW(c.readString(text), VornException);
    EXPECT_THROW(c.readUnsignedShort(), VornException);
    EXPECT_THROW(c.read(buffer, 1, length, false), VornException);
    EXPECT_THROW(c.peek(buffer, length, closed), VornException);
    EXPECT_THROW(c.peekLine(buffer, length, closed), VornException);
    EXPECT_THROW(c.readLine(buffer, 8, closed), VornException);
    EXPECT_THROW(c.isLocalConnection(), VornException);
    EXPECT_TRUE(c.isPeerGone());
    c.close();
    EXPECT_TRUE(c.sent.empty());
}

TEST(VornStreamConnection, SetsAnEventAtItsAbort) {
    ScriptedConnection c;
    VornSupport::VornEvent first;
    VornSupport::VornEvent second;
    c.setAbortEvent(&first);
    c.setAbortEvent(&second);
    EXPECT_EQ(second.wait(0), 0);
    c.abort();
    EXPECT_NE(second.wait(0), 0);
    EXPECT_EQ(first.wait(0), 0) << "the second took its place";
    c.setAbortEvent(&first);
    EXPECT_NE(first.wait(0), 0) << "broken already";
    c.setAbortEvent(nullptr);
    c.abort();
    EXPECT_EQ(first.wait(0), 0);
}

// The event goes as soon as it is taken back, whatever abort() is doing.
TEST(VornStreamConnection, LeavesAnEventAloneThatWasTakenBack) {
    for (int round = 0; round < 500; ++round) {
        ScriptedConnection c;
        std::thread aborting;
        {
            VornSupport::VornEvent event;
            c.setAbortEvent(&event);
            aborting = std::thread([&c] { c.abort(); });
            if (round % 2 == 0) {
                EXPECT_NE(event.wait(20'000), 0);
            }
            c.setAbortEvent(nullptr);
        }
        aborting.join();
    }
}

TEST(VornStreamConnection, SendsWhatIsHeldAtCloseAndClosesOnce) {
    ScriptedConnection c;
    c.writeInt(3);
    c.close();
    EXPECT_EQ(c.wire(), encoded(3));
    c.close();
    EXPECT_EQ(c.channelCloses, 1);
    EXPECT_EQ(messageOf([&] { c.writeInt(1); }), "script:1: the connection is closed");
    EXPECT_THROW(c.readInt(), VornException);
    EXPECT_TRUE(c.isPeerGone());
    EXPECT_EQ(c.bufferBytesForTest(), 0U);
}

TEST(VornStreamConnection, NeverThrowsFromClose) {
    ScriptedConnection c;
    c.failSends = true;
    c.writeInt(3);
    EXPECT_NO_THROW(c.close());
    ScriptedConnection d;
    d.failClose = true;
    EXPECT_NO_THROW(d.close());
}

TEST(VornStreamConnection, TellsTheChannelOfUnreadInputAtClose) {
    ScriptedConnection c({encoded(1) + "more"});
    c.readInt();
    EXPECT_TRUE(c.hasBufferedInput());
    c.close();
    EXPECT_TRUE(c.unreadAtClose);
    EXPECT_FALSE(c.hasBufferedInput());
    ScriptedConnection d({encoded(1)});
    d.readInt();
    EXPECT_FALSE(d.hasBufferedInput());
    d.close();
    EXPECT_FALSE(d.unreadAtClose);
}

TEST(VornStreamConnection, KnowsThatThePeerHasGone) {
    ScriptedConnection c({"x"});
    EXPECT_FALSE(c.isPeerGone());
    c.gone = true;
    EXPECT_TRUE(c.isPeerGone());
    c.gone = false;
    raw(c, 1, true);
    EXPECT_THROW(raw(c, 1, true), VornException);
    EXPECT_TRUE(c.isPeerGone()) << "the end of the stream was seen";
}

TEST(VornStreamConnection, LooksForThePeersEndBehindWhatItHasSent) {
    ScriptedConnection c({std::string(3000, 'a'), std::string(300'000, 'b'), "last"});
    EXPECT_FALSE(c.isPeerGone());
    EXPECT_TRUE(c.arrivals.empty());
    c.gone = true;
    EXPECT_TRUE(c.isPeerGone());
    EXPECT_EQ(raw(c, 303'004, true), std::string(3000, 'a') + std::string(300'000, 'b') + "last")
        << "nothing is lost by looking";
}

TEST(VornStreamConnection, TakesInABoundedAmountToFindThePeersEnd) {
    auto& limit = VornNet::VornNetLimits::getInstance().blockBytes;
    const std::uint32_t before = limit.exchange(1000);  // less than is always taken in
    ScriptedConnection c({std::string(5'000'000, 'x')});
    EXPECT_FALSE(c.isPeerGone());
    EXPECT_FALSE(c.isPeerGone());
    EXPECT_LE(c.bufferBytesForTest(), 1U << 20U);
    EXPECT_FALSE(c.arrivals.empty());
    EXPECT_EQ(raw(c, 5'000'000, true), std::string(5'000'000, 'x'));
    EXPECT_LE(c.bufferBytesForTest(), 512U) << "and does not keep it";

    limit = 3'000'000;
    ScriptedConnection more({std::string(5'000'000, 'x')});
    EXPECT_FALSE(more.isPeerGone());
    EXPECT_LT(more.arrivals.front().size(), 2'000'000U);
    limit = before;
}

TEST(VornStreamConnection, TakesInNoMoreWhenItIsReadBetweenManyLooks) {
    auto& limit = VornNet::VornNetLimits::getInstance().blockBytes;
    const std::uint32_t before = limit.exchange(1000);
    ScriptedConnection c({std::string(5'000'000, 'x')});
    std::string taken;
    while (taken.size() < 5'000'000) {
        EXPECT_FALSE(c.isPeerGone());
        ASSERT_LE(c.bufferBytesForTest(), 5U << 18U);
        taken += raw(c, 1000, true);
    }
    EXPECT_EQ(taken, std::string(5'000'000, 'x'));
    limit = before;
}

TEST(VornStreamConnection, FindsThatItWasAbortedOrLostByLooking) {
    ScriptedConnection aborted({"x"});
    aborted.abort();
    EXPECT_TRUE(aborted.isPeerGone());
    ScriptedConnection ended({"x"});
    ended.endsBehindArrivals = true;
    EXPECT_TRUE(ended.isPeerGone());
    EXPECT_EQ(raw(ended, 1, true), "x");
    EXPECT_THROW(raw(ended, 1, true), VornException);
}

TEST(VornStreamConnection, AsksOnceWhetherThePeerIsLocal) {
    ScriptedConnection c;
    EXPECT_TRUE(c.isLocalConnection());
    c.admits = false;
    EXPECT_TRUE(c.isLocalConnection());
    EXPECT_EQ(c.admissionsAsked, 1);
    ScriptedConnection refused;
    refused.admits = false;
    EXPECT_FALSE(refused.isLocalConnection());
    EXPECT_FALSE(refused.isLocalConnection());
    EXPECT_EQ(refused.admissionsAsked, 1);
}

TEST(VornStreamConnection, HasNoSocketOfItsOwn) {
    ScriptedConnection c;
    EXPECT_EQ(c.getSocket(), -1);
}
