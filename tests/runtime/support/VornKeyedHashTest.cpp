#include "runtime/support/VornKeyedHash.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

using namespace VornSupport;

namespace {

constexpr VornHashKey kKey{0x0706050403020100, 0x0f0e0d0c0b0a0908};

// 00 01 02 ...
std::string counted(std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) text += static_cast<char>(i);
    return text;
}

// The values that the function's authors give for this key.
TEST(VornKeyedHash, IsTheFunctionThatItSays) {
    EXPECT_EQ(keyedHash("", kKey), 0x726fdb47dd0e0e31U);
    EXPECT_EQ(keyedHash(counted(1), kKey), 0x74f839c593dc67fdU);
    EXPECT_EQ(keyedHash(counted(7), kKey), 0xab0200f58b01d137U);
    EXPECT_EQ(keyedHash(counted(8), kKey), 0x93f5f5799a932462U);
    EXPECT_EQ(keyedHash(counted(15), kKey), 0xa129ca6149be45e5U);
}

TEST(VornKeyedHash, DependsOnEveryByteAndOnTheLength) {
    std::set<std::uint64_t> hashes;
    for (std::size_t length = 0; length < 64; ++length) {
        hashes.insert(keyedHash(std::string(length, '\0'), kKey));
        for (std::size_t at = 0; at < length; ++at) {
            std::string text(length, '\0');
            text[at] = '\x80';
            hashes.insert(keyedHash(text, kKey));
        }
    }
    EXPECT_EQ(hashes.size(), 64U + 63U * 64U / 2U);
}

TEST(VornKeyedHash, DependsOnBothHalvesOfTheKey) {
    const std::uint64_t hash = keyedHash("name", kKey);
    EXPECT_NE(keyedHash("name", {kKey.first + 1, kKey.second}), hash);
    EXPECT_NE(keyedHash("name", {kKey.first, kKey.second + 1}), hash);
}

TEST(VornKeyedHash, KeepsItsKeyForTheLifeOfTheProcess) {
    const VornHashKey& key = VornHashKey::ofProcess();
    EXPECT_EQ(&VornHashKey::ofProcess(), &key);
    EXPECT_FALSE(key.first == 0 && key.second == 0);
    EXPECT_NE(key.first, key.second);
}

}  // namespace
