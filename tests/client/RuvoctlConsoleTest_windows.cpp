// What is typed at the console that ruvoctl, its command and others share. A program
// of its own: its console is one too.

#include "runtime/platform/Environment.h"
#include "runtime/platform/Foreground.h"
#include "runtime/platform/PathText.h"
#include "runtime/platform/Signals.h"
#include "tests/client/ScriptedDaemon.h"
#include "tests/support/ChildMain.h"
#include "tests/support/TestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <string>
#include <vector>

using namespace ClientTest;
using TestSupport::exists;
using TestSupport::waitUntil;

namespace {

using Words = std::vector<std::string>;

constexpr int kPatienceMs = 20'000;

std::string lockRequest(std::int64_t wait) {
    return engineRequest("Arbiter", "RUVO_RA_LOCK", str("a") + i32(wait));
}

std::string unlockRequest(std::int64_t handle) {
    return engineRequest("Arbiter", "RUVO_RA_UNLOCK", i32(handle));
}

class RuvoctlConsole : public testing::Test {
protected:
    static void SetUpTestSuite() {
        // That of our parent may be half a one.
        ::FreeConsole();
        ASSERT_TRUE(::AllocConsole()) << ::GetLastError();
        // We are told as well, and go on.
        ASSERT_FALSE(VornPlatform::watchSignals({.stop = [] {}}));
    }
    static void type() {
        EXPECT_TRUE(::GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) << ::GetLastError();
    }

    std::string file(std::string_view name) { return directory_.file(name); }
    // Starts "ruvoctl lock a -- COMMAND", whose command begins, and ends when `go`
    // exists.
    void start(const ScriptedDaemon& daemon) {
        const std::string client =
            VornPlatform::getEnv("RUVO_CLIENT_BIN").value_or("") + "/ruvoctl.exe";
        const Words words = {client,       "--port",    std::to_string(daemon.port()),
                             "lock",       "a",         "--",
                             VornPlatform::executablePath(), "--child", "tell",
                             file("begun"), file("go"), file("done")};
        const auto error = VornPlatform::startInForeground(words, process_);
        ASSERT_FALSE(error) << client << ": " << error.text();
    }

    TestSupport::TemporaryDirectory directory_;
    VornPlatform::ProcessHandle process_;
};

}  // namespace

TEST_F(RuvoctlConsole, EndsTheCommandAndGivesTheLockBack) {
    // Tells what status the system gives a program that Ctrl-C ends.
    VornPlatform::ProcessHandle other;
    ASSERT_FALSE(VornPlatform::startInForeground(
        {VornPlatform::executablePath(), "--child", "tell", file("other"), file("go"),
         file("done")},
        other));
    ASSERT_TRUE(waitUntil([&] { return exists(file("other")); }));
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lockRequest(0), i32(5));
        EXPECT_TRUE(waitUntil([&] { return exists(file("begun")); }));
        type();
        peer.serve(unlockRequest(5), i32(0));
        peer.awaitClose();
    });
    start(daemon);
    EXPECT_TRUE(process_.wait(kPatienceMs));
    EXPECT_TRUE(other.wait(kPatienceMs));
    // 130 where ruvoctl had not seen yet that the command had begun, and ended it.
    EXPECT_THAT(process_.exitCode(), testing::AnyOf(other.exitCode(), 130));
    daemon.join();
    EXPECT_FALSE(exists(file("done")));
}

TEST_F(RuvoctlConsole, EndsTheWait) {
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lockRequest(0), i32(0));
        peer.expect(u16(1) + lockRequest(-1));
        type();
        peer.awaitClose();
        peer.send(i32(0));
    });
    start(daemon);
    EXPECT_TRUE(process_.wait(kPatienceMs));
    EXPECT_EQ(process_.exitCode(), 130);
    daemon.join();
    EXPECT_FALSE(exists(file("begun")));
}
