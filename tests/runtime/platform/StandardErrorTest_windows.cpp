#include "runtime/platform/StandardError.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <chrono>
#include <string>
#include <string_view>
#include <thread>

using namespace VornPlatform;
using namespace std::chrono_literals;

namespace {

constexpr std::chrono::milliseconds kPatience{20'000};

// Puts a pipe in place of standard error for a scope.
class StandardErrorWindows : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(::CreatePipe(&reader_, &writer_, nullptr, 4096));
        saved_ = ::GetStdHandle(STD_ERROR_HANDLE);
        ::SetStdHandle(STD_ERROR_HANDLE, writer_);
    }
    void TearDown() override {
        EXPECT_TRUE(flushStandardError(kPatience));
        ::SetStdHandle(STD_ERROR_HANDLE, saved_);
        ::CloseHandle(writer_);
        if (reader_ != nullptr) ::CloseHandle(reader_);
    }

    std::string readUntil(std::string_view end) const {
        std::string all;
        char piece[4096];
        while (!all.ends_with(end)) {
            DWORD count = 0;
            if (!::ReadFile(reader_, piece, sizeof piece, &count, nullptr)) break;
            all.append(piece, count);
        }
        return all;
    }

    HANDLE reader_ = nullptr;
    HANDLE writer_ = nullptr;
    HANDLE saved_ = nullptr;
};

TEST_F(StandardErrorWindows, WritesTheText) {
    EXPECT_TRUE(writeStandardError("one\n"));
    EXPECT_EQ(readUntil("\n"), "one\n");
    const std::string large = std::string(50'000, 'x') + "\n";
    std::string got;
    std::thread reader([&] { got = readUntil("\n"); });
    EXPECT_TRUE(writeStandardError(large));
    reader.join();
    EXPECT_EQ(got, large);
    EXPECT_TRUE(writeStandardError(""));
}

TEST_F(StandardErrorWindows, HoldsNobodyUpForAReaderThatHasStopped) {
    const std::string line = std::string(1023, 'x') + "\n";
    const auto begin = std::chrono::steady_clock::now();
    std::size_t count = 0;
    while (count < 1000 && writeStandardError(line)) ++count;
    ASSERT_LT(count, 1000u) << "the pipe takes everything";
    ++count;  // the one that was waited for is kept

    // Kept in order up to the bound, then lost and counted.
    const std::size_t numbered = 3000;
    for (std::size_t i = 0; i < numbered; ++i) {
        std::string text = std::to_string(i) + " ";
        text.resize(1023, 'y');
        EXPECT_FALSE(writeStandardError(text + "\n"));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    EXPECT_FALSE(flushStandardError(1ms));

    std::string got = readUntil(" lines lost\n");
    for (; count > 0; --count) {
        ASSERT_TRUE(got.starts_with(line));
        got.erase(0, line.size());
    }
    std::size_t kept = 0;
    while (got.starts_with(std::to_string(kept) + " y")) {
        got.erase(0, line.size());
        ++kept;
    }
    EXPECT_GE(kept * line.size(), kMostKeptOfStandardError - 2 * line.size());
    EXPECT_LE(kept * line.size(), kMostKeptOfStandardError);
    EXPECT_EQ(got, std::to_string(numbered - kept) + " lines lost\n");

    EXPECT_TRUE(flushStandardError(kPatience));
    EXPECT_TRUE(writeStandardError("again\n"));
    EXPECT_EQ(readUntil("\n"), "again\n");
}

TEST_F(StandardErrorWindows, DoesWithoutAReader) {
    ::CloseHandle(reader_);
    reader_ = nullptr;
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i) writeStandardError("nobody reads this\n");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}

}  // namespace
