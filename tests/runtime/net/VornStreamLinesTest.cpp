#include "runtime/net/VornStreamConnection.h"

#include "tests/runtime/net/ScriptedConnection.h"

#include <gtest/gtest.h>

using VornSupport::VornException;

namespace {

struct LineSeen {
    std::string text;
    bool whole = false;
    bool closed = false;
    bool operator==(const LineSeen&) const = default;
};

void PrintTo(const LineSeen& line, std::ostream* out) {
    *out << '"' << line.text << "\" whole " << line.whole << " closed " << line.closed;
}

LineSeen peekLine(ScriptedConnection& c, int capacity) {
    std::string buffer(static_cast<std::size_t>(capacity) + 1, '#');
    int length = capacity;
    LineSeen seen;
    seen.closed = true;  // must be set either way
    seen.whole = c.peekLine(buffer.data(), length, seen.closed);
    EXPECT_EQ(buffer[static_cast<std::size_t>(length)], '\0');
    EXPECT_EQ(buffer.back(), '#') << "written past the buffer";
    seen.text = buffer.substr(0, static_cast<std::size_t>(length));
    return seen;
}

LineSeen readLine(ScriptedConnection& c, int capacity) {
    std::string buffer(static_cast<std::size_t>(capacity) + 1, '#');
    LineSeen seen;
    seen.closed = true;
    const char* const result = c.readLine(buffer.data(), capacity, seen.closed);
    EXPECT_EQ(result, buffer.data());
    EXPECT_EQ(buffer.back(), '#') << "written past the buffer";
    seen.text = result;
    return seen;
}

}  // namespace

TEST(VornStreamConnection, ReadsLinesWithoutTheirEnds) {
    ScriptedConnection c({"RUVO\nGET / HTTP/1.1\r\n\n\r\nlast"});
    EXPECT_EQ(readLine(c, 512), (LineSeen{"RUVO"}));
    EXPECT_EQ(readLine(c, 512), (LineSeen{"GET / HTTP/1.1"}));
    EXPECT_EQ(readLine(c, 512), (LineSeen{""}));
    EXPECT_EQ(readLine(c, 512), (LineSeen{""}));
    EXPECT_EQ(readLine(c, 512), (LineSeen{"last", false, true}));
    EXPECT_EQ(readLine(c, 512), (LineSeen{"", false, true}));
}

TEST(VornStreamConnection, StripsOnlyTheReturnBeforeTheLineEnd) {
    ScriptedConnection c({"a\rb\r\r\n"});
    EXPECT_EQ(readLine(c, 512), (LineSeen{"a\rb\r"}));
}

TEST(VornStreamConnection, ReadsALineThatComesByteByByte) {
    ScriptedConnection c({"R", "U", "V", "O", "\r", "\n", "x"});
    EXPECT_EQ(readLine(c, 512), (LineSeen{"RUVO"}));
    EXPECT_FALSE(c.hasBufferedInput());
}

TEST(VornStreamConnection, LeavesTheRestOfALongLine) {
    ScriptedConnection c({"0123456789\n"});
    EXPECT_EQ(readLine(c, 5), (LineSeen{"0123"}));
    EXPECT_EQ(readLine(c, 5), (LineSeen{"4567"}));
    EXPECT_EQ(readLine(c, 5), (LineSeen{"89"}));
}

TEST(VornStreamConnection, TakesTheLongestLineThatFitsWhole) {
    for (const std::string end : {"\n", "\r\n"}) {
        ScriptedConnection c({"0123" + end + "next\n"});
        EXPECT_EQ(peekLine(c, 5), (LineSeen{"0123", true}));
        EXPECT_EQ(readLine(c, 5), (LineSeen{"0123"}));
        EXPECT_EQ(readLine(c, 5), (LineSeen{"next"})) << "the line end was consumed";
    }
    ScriptedConnection over({"01234\r\n"});
    EXPECT_EQ(peekLine(over, 5), (LineSeen{"0123", false}));
    ScriptedConnection returnInside({"0123\rx\n"});
    EXPECT_EQ(readLine(returnInside, 5), (LineSeen{"0123"}));
    EXPECT_EQ(readLine(returnInside, 5), (LineSeen{"\rx"}));
}

// 512 is the buffer that first lines are read into.
TEST(VornStreamConnection, HoldsLinesToTheBufferOfTheFirstLine) {
    for (std::size_t size = 508; size <= 514; ++size) {
        const std::string line(size, 'q');
        ScriptedConnection c({line + "\r\n"});
        EXPECT_EQ(peekLine(c, 512), (LineSeen{line.substr(0, 511), size <= 511}));
        EXPECT_EQ(readLine(c, 512), (LineSeen{line.substr(0, 511)}));
        EXPECT_EQ(readLine(c, 512), (LineSeen{line.substr(std::min<std::size_t>(size, 511)), false,
                                              size <= 511}));
    }
}

TEST(VornStreamConnection, StopsWaitingWhenTheBufferIsFull) {
    ScriptedConnection c({std::string(512, 'x')});
    c.stalled = true;
    EXPECT_EQ(peekLine(c, 512), (LineSeen{std::string(511, 'x'), false}));
    EXPECT_EQ(c.receives, 1) << "it waited for bytes that it had no room for";
}

TEST(VornStreamConnection, EndsAPeekedLineWithTheStream) {
    ScriptedConnection c({"no end"});
    EXPECT_EQ(peekLine(c, 512), (LineSeen{"no end", false, true}));
    ScriptedConnection empty;
    EXPECT_EQ(peekLine(empty, 512), (LineSeen{"", false, true}));
    ScriptedConnection cut({"01234567"});
    EXPECT_EQ(peekLine(cut, 5), (LineSeen{"0123", false, false})) << "more is there to be read";
}

TEST(VornStreamConnection, PeeksALineWithoutConsumingIt) {
    ScriptedConnection c({"GET / HTTP/1.1\r\nHost: x\r\n"});
    EXPECT_EQ(peekLine(c, 512), (LineSeen{"GET / HTTP/1.1", true}));
    EXPECT_EQ(peekLine(c, 512), (LineSeen{"GET / HTTP/1.1", true}));
    EXPECT_EQ(readLine(c, 512), (LineSeen{"GET / HTTP/1.1"}));
    EXPECT_EQ(peekLine(c, 512), (LineSeen{"Host: x", true}));
}

TEST(VornStreamConnection, CutsOffLinesAtEveryByte) {
    const std::string all = "RUVO\r\n";
    for (std::size_t cut = 0; cut < all.size(); ++cut) {
        ScriptedConnection c({all.substr(0, cut)});
        if (cut == 0) c.arrivals.clear();
        const LineSeen line = readLine(c, 512);
        EXPECT_EQ(line, (LineSeen{all.substr(0, cut), false, true}));
    }
}

TEST(VornStreamConnection, KeepsZeroBytesOfLines) {
    ScriptedConnection c({std::string("a\0b\n", 4)});
    char buffer[8];
    int length = 8;
    bool closed = false;
    EXPECT_TRUE(c.peekLine(buffer, length, closed));
    EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(length)), std::string("a\0b", 3));
}

TEST(VornStreamConnection, ReadsLinesIntoTheSmallestBuffer) {
    ScriptedConnection c({"\nx\n"});
    EXPECT_EQ(readLine(c, 1), (LineSeen{""}));
    EXPECT_EQ(peekLine(c, 1), (LineSeen{"", false})) << "no room for the x";
    char byte;
    bool closed = false;
    int length = 0;
    EXPECT_THROW(c.readLine(&byte, 0, closed), VornException);
    EXPECT_THROW(c.peekLine(&byte, length, closed), VornException);
}

TEST(VornStreamConnection, ReadsLinesLargerThanItsUsualBuffers) {
    const std::string line(100'000, 'l');
    ScriptedConnection c({line + "\nrest\n"});
    EXPECT_EQ(readLine(c, 200'000), (LineSeen{line}));
    EXPECT_EQ(readLine(c, 200'000), (LineSeen{"rest"}));
}

TEST(VornStreamConnection, TakesALostPeerInALineForTheEnd) {
    ScriptedConnection c({"half"});
    c.breaks = VornPlatform::OsError(5);
    EXPECT_EQ(readLine(c, 512), (LineSeen{"half", false, true}));
    EXPECT_THROW(c.readInt(), VornException);
}

TEST(VornStreamConnection, SendsWhatIsHeldBeforeItWaitsForALine) {
    ScriptedConnection c({"answer\n"});
    c.writeInt(1);
    EXPECT_EQ(readLine(c, 512), (LineSeen{"answer"}));
    EXPECT_EQ(c.wire().size(), 4U);
}

TEST(VornStreamConnection, PeeksWithoutWaiting) {
    ScriptedConnection c;
    c.stalled = true;
    char buffer[5];
    int length = 5;
    bool closed = true;
    EXPECT_FALSE(c.peek(buffer, length, closed));
    EXPECT_FALSE(closed);
    EXPECT_EQ(length, 0);
    EXPECT_TRUE(c.roomOfWaits.empty());

    c.arrivals.push_back("\x16\x03");
    length = 5;
    EXPECT_TRUE(c.peek(buffer, length, closed));
    EXPECT_FALSE(closed);
    EXPECT_EQ(length, 2);
    EXPECT_EQ(std::string(buffer, 2), "\x16\x03");

    c.arrivals.push_back("abcdef");
    length = 5;
    EXPECT_TRUE(c.peek(buffer, length, closed));
    EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(length)), "\x16\x03""abc");
    EXPECT_TRUE(c.hasBufferedInput());

    char all[8];
    c.read(all, 8, length, true);
    EXPECT_EQ(std::string(all, 8), "\x16\x03""abcdef");
    EXPECT_FALSE(c.hasBufferedInput());

    c.stalled = false;
    length = 5;
    EXPECT_FALSE(c.peek(buffer, length, closed));
    EXPECT_TRUE(closed);
}

TEST(VornStreamConnection, PeeksTheLastBytesBeforeItReportsTheEnd) {
    ScriptedConnection c({"ab"});
    char buffer[5];
    int length = 5;
    bool closed = true;
    EXPECT_TRUE(c.peek(buffer, length, closed));
    EXPECT_EQ(length, 2);
    EXPECT_FALSE(closed);
    c.read(buffer, 2, length, true);
    length = 5;
    EXPECT_FALSE(c.peek(buffer, length, closed));
    EXPECT_TRUE(closed);
}

TEST(VornStreamConnection, PeeksWhetherAnythingIsThereForLengthZero) {
    ScriptedConnection c({"ab"});
    int length = 0;
    bool closed = true;
    EXPECT_TRUE(c.peek(nullptr, length, closed));
    EXPECT_EQ(length, 0);
    length = -3;
    EXPECT_TRUE(c.peek(nullptr, length, closed));
    EXPECT_EQ(length, 0);
}

TEST(VornStreamConnection, TakesALostPeerInAPeekForTheEnd) {
    ScriptedConnection c;
    c.breaks = VornPlatform::OsError(5);
    char buffer[5];
    int length = 5;
    bool closed = false;
    EXPECT_FALSE(c.peek(buffer, length, closed));
    EXPECT_TRUE(closed);
}
