// The log without memory.

#include "runtime/platform/OsError.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornThreadName.h"
#include "tests/runtime/platform/NativeProbe.h"
#include "tests/runtime/support/AllocationCount.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>

using namespace VornSupport;

namespace {

// Logs without memory until the log has the text: a record that begins a second needs
// memory for its time, and may be lost.
bool logsWithoutMemory(const std::function<void()>& line, const std::string& text) {
    const TestSupport::LogCapture log;
    VORN_LOG(1, "opens the file, and is long enough for what comes: " << std::string(500, '.'));
    return TestSupport::waitUntil([&] {
        {
            const AllocationFailure noMemory(threadName());
            line();
        }
        return log.has(2, text);
    });
}

TEST(VornLoggingShortage, WritesTheNumberOfAnErrorWithoutAText) {
    const VornPlatform::OsError error = VornPlatform::OsError::noMemory();
    ASSERT_GT(error.text().size(), 15u) << "it needs no memory";
    const bool cut = NativeProbe::replacesAllocationEverywhere();
    EXPECT_TRUE(logsWithoutMemory(
        [error] { VORN_LOG(2, "refused: " << error << "; going on"); },
        "refused: " + (cut ? "error " + std::to_string(error.code()) : error.text()) +
            "; going on"));
}

TEST(VornLoggingShortage, WritesTheTextOfAnErrorOtherwise) {
    const TestSupport::LogCapture log;
    const VornPlatform::OsError error = VornPlatform::OsError::noMemory();
    VORN_LOG(2, "refused: " << error);
    EXPECT_TRUE(log.has(2, "refused: " + error.text()));
}

// Nor is anybody told by an exception: some who log must not throw.
TEST(VornLoggingShortage, BreaksOffARecordWhosePieceFindsNoMemory) {
    const auto log = []() noexcept {
        VORN_LOG(2, "before " << std::string(100, 'x') << " after");
    };
    EXPECT_TRUE(logsWithoutMemory(log, "before ... (no memory for the rest)"));
}

TEST(VornLoggingShortage, KeepsTheRecordAroundTheOneThatBreaksOff) {
    const TestSupport::LogCapture log;
    const auto none = []() -> int { throw std::bad_alloc(); };
    const auto inner = [&] {
        VORN_LOG(2, "inner " << none());
        return 5;
    };
    VORN_LOG(1, "outer " << inner() << " after");
    EXPECT_TRUE(log.has(2, "inner ... (no memory for the rest)"));
    EXPECT_TRUE(log.has(1, "outer 5 after"));
}

}  // namespace
