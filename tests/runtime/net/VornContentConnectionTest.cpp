#include "runtime/net/VornContentConnection.h"

#include "runtime/net/WireCodec.h"
#include "runtime/support/VornException.h"

#include <gtest/gtest.h>

#include <limits>

using VornNet::VornContentConnection;
using VornSupport::VornException;

namespace {

class Owner : public VornSupport::VornObjectBase {};

}  // namespace

TEST(VornContentConnection, AppendsInTheWireEncoding) {
    std::string out = "x";
    VornContentConnection connection(out, 100, 1000);
    connection.writeInt(-2);
    connection.writeInt2(1);
    connection.writeInt3(2);
    connection.writeString(std::string("a\0b", 3));
    int count = 0;
    connection.write("raw", 3, count);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(out, std::string("x\xff\xff\xff\xfe\0\0\0\1\0\0\0\2\0\0\0\3a\0b"
                               "raw",
                               1 + 12 + 7 + 3));
    EXPECT_FALSE(connection.hasFailed());
}

TEST(VornContentConnection, TakesAnEmptyOrNegativeRawWriteAsNothing) {
    std::string out;
    VornContentConnection connection(out, 0, 1000);
    int count = 7;
    connection.write(nullptr, 0, count);
    EXPECT_EQ(count, 0);
    connection.write(nullptr, -5, count);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(out, "");
}

TEST(VornContentConnection, RefusesContentBeyondItsLimitAndRemembersIt) {
    std::string out;
    VornContentConnection connection(out, 8, 1000);
    connection.writeString("1234");
    EXPECT_THROW(connection.writeInt(1), VornException);
    EXPECT_TRUE(connection.hasFailed());
    EXPECT_EQ(out.size(), 8u);
}

TEST(VornContentConnection, CannotBeRead) {
    std::string out;
    VornContentConnection connection(out, 8, 1000);
    std::string text;
    char buffer[4];
    int length = 4;
    bool closed = false;
    EXPECT_THROW(connection.readInt(), VornException);
    EXPECT_THROW(connection.readUnsigned(), VornException);
    EXPECT_THROW(connection.readUnsignedShort(), VornException);
    EXPECT_THROW(connection.readString(text), VornException);
    EXPECT_THROW(connection.read(buffer, 4, length, true), VornException);
    EXPECT_THROW(connection.peek(buffer, length, closed), VornException);
    EXPECT_THROW(connection.peekLine(buffer, length, closed), VornException);
    EXPECT_THROW(connection.readLine(buffer, 4, closed), VornException);
    EXPECT_FALSE(connection.hasBufferedInput());
    EXPECT_EQ(connection.getSocket(), -1);
}

TEST(WireCodec, EncodesBigEndianAndBack) {
    char bytes[4];
    VornNet::encode32(0x01020304, bytes);
    EXPECT_EQ(std::string(bytes, 4), "\1\2\3\4");
    VornNet::encode16(0xfffe, bytes);
    EXPECT_EQ(VornNet::decode16(bytes), 0xfffe);
    for (const std::int32_t value : {0, 1, -1, std::numeric_limits<std::int32_t>::min(),
                                     std::numeric_limits<std::int32_t>::max()}) {
        std::string out;
        VornNet::appendInt(out, value);
        ASSERT_EQ(out.size(), 4u);
        EXPECT_EQ(static_cast<std::int32_t>(VornNet::decode32(out.data())), value);
    }
    std::string text;
    VornNet::append16(text, 7777);
    VornNet::appendString(text, "JobStatus");
    EXPECT_EQ(text, std::string("\x1e\x61\0\0\0\x09JobStatus", 15));
}

TEST(VornContentConnection, PointsToALargeSharedEnd) {
    const auto owner = VornSupport::makeCounted<Owner>();
    const std::string large(100, 'l');
    std::string out;
    VornContentConnection connection(out, 1000, 100);
    connection.writeShared(*owner, std::string_view(large).substr(1));
    EXPECT_EQ(out, large.substr(1)) << "small ones are copied";
    connection.writeShared(*owner, large);
    EXPECT_EQ(out.size(), 99u);
    EXPECT_EQ(connection.shared().data(), large.data());
    EXPECT_EQ(connection.sharedOwner().get(), owner.get());
    connection.writeInt(1);
    EXPECT_EQ(out.size(), 203u) << "what follows makes it a part like others";
    EXPECT_TRUE(connection.shared().empty());
    EXPECT_EQ(owner->refCount(), 1u);
}

TEST(VornContentConnection, CountsWhatIsShared) {
    const std::string large(100, 'l');
    std::string out;
    VornContentConnection connection(out, 103, 10);
    connection.writeShared(*VornSupport::makeCounted<Owner>(), large);
    EXPECT_THROW(connection.writeInt(1), VornSupport::VornException);
    EXPECT_TRUE(connection.hasFailed());
}
