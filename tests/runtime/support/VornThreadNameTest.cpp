#include "runtime/support/VornThreadName.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

using namespace VornSupport;

namespace {

std::string afterSetting(const std::string& name) {
    std::string seen;
    std::thread([&] {
        setThreadName(name);
        seen = threadName();
    }).join();
    return seen;
}

TEST(VornThreadName, IsMainUntilOneIsSet) {
    std::string seen;
    std::thread([&] { seen = threadName(); }).join();
    EXPECT_EQ(seen, "main");
}

TEST(VornThreadName, BelongsToOneThread) {
    EXPECT_EQ(afterSetting("TCPServer"), "TCPServer");
    EXPECT_EQ(threadName(), "main");
}

TEST(VornThreadName, MayBeEmptyAndReplaced) {
    EXPECT_EQ(afterSetting(""), "");
    std::thread([] {
        setThreadName("first name");
        setThreadName("second");
        EXPECT_EQ(threadName(), "second");
    }).join();
}

TEST(VornThreadName, KeepsTheFirst63Bytes) {
    EXPECT_EQ(afterSetting(std::string(63, 'a')), std::string(63, 'a'));
    EXPECT_EQ(afterSetting(std::string(200, 'a')), std::string(63, 'a'));
}

TEST(VornThreadName, CutsBetweenCharacters) {
    const std::string euro = "\xE2\x82\xAC";
    EXPECT_EQ(afterSetting(std::string(61, 'a') + euro), std::string(61, 'a'));
    EXPECT_EQ(afterSetting(std::string(60, 'a') + euro + euro), std::string(60, 'a') + euro);
    EXPECT_EQ(afterSetting(std::string(70, '\x80')), "");
}

}  // namespace
