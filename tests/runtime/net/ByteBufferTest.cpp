#include "runtime/net/ByteBuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

namespace VornNet {
namespace {

void put(ByteBuffer& buffer, std::string_view bytes) {
    ASSERT_GE(buffer.roomSize(), bytes.size());
    std::memcpy(buffer.room(), bytes.data(), bytes.size());
    buffer.grew(bytes.size());
}

TEST(ByteBuffer, TakesNoMemoryBeforeItsFirstByte) {
    ByteBuffer buffer;
    buffer.append({});
    buffer.consume(0);
    EXPECT_EQ(buffer.capacity(), 0U);
    EXPECT_EQ(buffer.roomSize(), 0U);
    EXPECT_TRUE(buffer.empty());
    EXPECT_EQ(buffer.view(), "");
}

TEST(ByteBuffer, GivesOutWhatCameInInOrder) {
    std::mt19937 random(3);
    ByteBuffer buffer;
    std::string expected;
    for (int step = 0; step < 20'000; ++step) {
        const std::string bytes(random() % 200, static_cast<char>('a' + step % 26));
        switch (random() % 4) {
            case 0: buffer.append(bytes); break;
            case 1:
                if (buffer.roomSize() < bytes.size()) buffer.reserve(buffer.capacity() + 300);
                put(buffer, bytes);
                break;
            default: {
                const std::size_t count = random() % (expected.size() + 1);
                buffer.consume(count);
                expected.erase(0, count);
                ASSERT_EQ(buffer.view(), expected);
                continue;
            }
        }
        expected += bytes;
        ASSERT_EQ(buffer.view(), expected);
    }
}

TEST(ByteBuffer, HasTheWholeOfItselfAsRoomWhenItIsEmpty) {
    ByteBuffer buffer;
    buffer.reserve(1000);
    put(buffer, std::string(1000, 'x'));
    EXPECT_EQ(buffer.roomSize(), 0U);
    buffer.consume(1000);
    EXPECT_EQ(buffer.roomSize(), 1000U);
}

// A full buffer of a megabyte from which little goes at a time.
TEST(ByteBuffer, MovesAByteAFewTimesAtMost) {
    constexpr std::size_t kHeld = 1 << 20;
    constexpr std::size_t kPiece = 100;
    constexpr std::size_t kPieces = 50'000;
    ByteBuffer buffer;
    buffer.reserve(kHeld + kHeld / 4);
    put(buffer, std::string(kHeld, 'x'));
    std::size_t moved = 0;
    for (std::size_t i = 0; i < kPieces; ++i) {
        buffer.consume(kPiece);
        const char* const before = buffer.data();
        put(buffer, std::string(kPiece, 'y'));
        if (buffer.data() != before) moved += buffer.size();
    }
    EXPECT_GT(moved, 0U) << "it had to";
    EXPECT_LE(moved, 5 * kPiece * kPieces);
}

}  // namespace
}  // namespace VornNet
