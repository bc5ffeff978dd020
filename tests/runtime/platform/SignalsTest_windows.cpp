#include "runtime/platform/Signals.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>

namespace VornPlatform {
namespace {

using TestSupport::waitUntil;

std::atomic<int> stops{0};
std::atomic<int> reloads{0};

TEST(Signals, ReachTheActionsOnAThreadOfTheirOwn) {
    // A console is needed for there to be somebody who tells; one of our own, as
    // that of our parent may be half a one.
    ::FreeConsole();
    ASSERT_TRUE(::AllocConsole()) << ::GetLastError();
    ASSERT_FALSE(watchSignals({.stop = [] { ++stops; }, .reload = [] { ++reloads; }}));
    ASSERT_TRUE(::GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) << ::GetLastError();
    EXPECT_TRUE(waitUntil([] { return stops == 1; }));
    EXPECT_EQ(reloads, 0);
    tellStopped();
}

}  // namespace
}  // namespace VornPlatform
