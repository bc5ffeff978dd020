#include "runtime/platform/Signals.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>

namespace VornPlatform {
namespace {

using TestSupport::waitUntil;

std::atomic<int> lastSignal{0};
std::atomic<bool> reachedOthers{false};
std::atomic<int> grace{0};
std::atomic<int> others{0};

TEST(SignalsEnd, TellsWhatWasAsked) {
    // A console is needed for there to be somebody who tells; one of our own, as
    // that of our parent may be half a one.
    ::FreeConsole();
    ASSERT_TRUE(::AllocConsole()) << ::GetLastError();
    ASSERT_FALSE(watchSignals({.stop = [] { ++others; },
                               .end = [](const EndRequest& request) {
                                   reachedOthers = request.reachedOthers;
                                   grace = request.graceMs;
                                   lastSignal = request.signal;
                               }}));
    ASSERT_TRUE(::GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) << ::GetLastError();
    EXPECT_TRUE(waitUntil([] { return lastSignal == 2; }));
    EXPECT_TRUE(reachedOthers);
    EXPECT_EQ(grace, -1);
    EXPECT_EQ(others, 0);
    tellStopped();
}

}  // namespace
}  // namespace VornPlatform
