#include "runtime/support/VornHex.h"

#include <gtest/gtest.h>

#include <string>

using namespace VornSupport;

namespace {

TEST(VornHex, WritesTwoUpperCaseDigitsAByte) {
    const unsigned char bytes[] = {0x00, 0x0F, 0xA5, 0xFF};
    EXPECT_EQ(VornBytesToHex(bytes, sizeof bytes), "000FA5FF");
    EXPECT_EQ(VornBytesToHex(nullptr, 0), "");
}

TEST(VornHex, ReadsBackEveryByte) {
    std::string all(256, '\0');
    for (int i = 0; i < 256; ++i) all[static_cast<std::size_t>(i)] = static_cast<char>(i);
    std::string back(all.size(), '#');
    EXPECT_EQ(VornHexToBytes(back.data(), back.size(), VornBytesToHex(all.data(), all.size())),
              all.size());
    EXPECT_EQ(back, all);
}

TEST(VornHex, ReadsEitherCase) {
    unsigned char bytes[2] = {};
    EXPECT_EQ(VornHexToBytes(bytes, sizeof bytes, "aBCd"), 2u);
    EXPECT_EQ(bytes[0], 0xAB);
    EXPECT_EQ(bytes[1], 0xCD);
}

TEST(VornHex, NeverWritesPastTheBuffer) {
    unsigned char bytes[3] = {9, 9, 9};
    EXPECT_EQ(VornHexToBytes(bytes, 2, "01020304"), 2u);
    EXPECT_EQ(bytes[1], 2);
    EXPECT_EQ(bytes[2], 9);
    EXPECT_EQ(VornHexToBytes(bytes, 0, "01"), 0u);
}

TEST(VornHex, IgnoresALoneLastDigit) {
    unsigned char bytes[2] = {9, 9};
    EXPECT_EQ(VornHexToBytes(bytes, sizeof bytes, "017"), 1u);
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(bytes[1], 9);
    EXPECT_EQ(VornHexToBytes(bytes, sizeof bytes, "7"), 0u);
    EXPECT_EQ(VornHexToBytes(bytes, sizeof bytes, ""), 0u);
}

TEST(VornHex, EndsAtTheFirstPairThatIsNotDigits) {
    unsigned char bytes[4] = {9, 9, 9, 9};
    for (const char* bad :
         {"01zz02", "01 02", "010x", "01:2", "01/0", "01@A", "01G0", "01`a", "01g0"}) {
        EXPECT_EQ(VornHexToBytes(bytes, sizeof bytes, bad), 1u) << bad;
        EXPECT_EQ(bytes[1], 9) << bad;
    }
    EXPECT_EQ(VornHexToBytes(bytes, sizeof bytes, "\xFF\xFF"), 0u);
}

}  // namespace
