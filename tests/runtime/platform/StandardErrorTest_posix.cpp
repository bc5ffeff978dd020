#include "runtime/platform/StandardError.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <string>

using namespace VornPlatform;

namespace {

// Puts a pipe in place of standard error for a scope.
class StandardErrorPosix : public testing::Test {
protected:
    void SetUp() override {
        int ends[2] = {};
        ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        reader_ = ends[0];
        ::fcntl(reader_, F_SETFL, O_NONBLOCK);
        saved_ = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
        ::dup2(ends[1], STDERR_FILENO);
        ::close(ends[1]);
    }
    void TearDown() override {
        ::dup2(saved_, STDERR_FILENO);
        ::close(saved_);
        if (reader_ >= 0) ::close(reader_);
    }

    std::string readAll() const {
        std::string all;
        char piece[4096];
        for (ssize_t count; (count = ::read(reader_, piece, sizeof piece)) > 0;) {
            all.append(piece, static_cast<std::size_t>(count));
        }
        return all;
    }

    int reader_ = -1;
    int saved_ = -1;
};

TEST_F(StandardErrorPosix, WritesTheText) {
    EXPECT_TRUE(writeStandardError("one\n"));
    const std::string large(20'000, 'x');
    EXPECT_TRUE(writeStandardError(large));
    EXPECT_EQ(readAll(), "one\n" + large);
}

TEST_F(StandardErrorPosix, GivesUpOnAReaderThatHasStoppedUntilItReadsAgain) {
    const std::string block(4096, 'x');
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 2000; ++i) {
        if (!writeStandardError(block)) break;
    }
    for (int i = 0; i < 100; ++i) EXPECT_FALSE(writeStandardError("more"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    readAll();
    EXPECT_TRUE(writeStandardError("again"));
    EXPECT_EQ(readAll(), "again");
}

}  // namespace
