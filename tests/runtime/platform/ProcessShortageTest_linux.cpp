// A system that has no descriptor for a child that has begun: another thread has taken
// the one that was kept for it.

#include "runtime/platform/Foreground.h"
#include "runtime/platform/NativeSignal.h"
#include "runtime/platform/Process.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <string>

namespace {

std::atomic<int> toRefuse{0};  // requests for a descriptor of a process
std::atomic<int> refused{0};
std::atomic<void*> realCall{nullptr};  // no local static, whose guard calls us

}  // namespace

// The libraries find this one in place of the C library's.
extern "C" [[gnu::visibility("default")]] long syscall(long number, ...) noexcept {
    if (number == SYS_pidfd_open && toRefuse > 0) {
        --toRefuse;
        ++refused;
        errno = EMFILE;
        return -1;
    }
    if (realCall == nullptr) realCall = ::dlsym(RTLD_NEXT, "syscall");
    va_list list;
    va_start(list, number);
    long words[6];
    for (long& word : words) word = va_arg(list, long);
    va_end(list);
    using Call = long (*)(long, ...);
    return reinterpret_cast<Call>(realCall.load())(number, words[0], words[1], words[2], words[3],
                                                   words[4], words[5]);
}

using namespace VornPlatform;

namespace {

constexpr int kPatienceMs = 20'000;
constexpr int kAll = INT_MAX;

bool isGone(std::int64_t process) {
    return ::kill(static_cast<pid_t>(process), 0) != 0 && errno == ESRCH;
}

// How many requests are refused: all, or only that at the start.
class ProcessShortageTest : public testing::TestWithParam<int> {
protected:
    ProcessShortageTest() { refused = 0; }
    ~ProcessShortageTest() override {
        EXPECT_GE(refused, 1);
        toRefuse = 0;
    }
    // Starts a shell that writes a line into the trace, and then does this.
    void start(const std::string& script) {
        toRefuse = GetParam();
        const OsError error =
            startProcess("sh -c 'echo begun >> \"" + trace_ + "\"; " + script + "'", process_);
        ASSERT_FALSE(error) << error.text();
        EXPECT_TRUE(process_.isOpen());
        EXPECT_GT(process_.processId(), 0);
    }
    void awaitBeginning() const {
        EXPECT_TRUE(TestSupport::waitUntil([this] { return trace() == "begun\n"; }));
    }
    std::string trace() const { return TestSupport::readFile(trace_); }
    std::string untilGo() const {
        return "until test -e \"" + go_ + "\"; do sleep 0.02; done; exit 7";
    }
    void go() const { TestSupport::writeFile(go_, ""); }

    const TestSupport::TemporaryDirectory folder_;
    const std::string trace_ = folder_.file("trace");
    const std::string go_ = folder_.file("go");
    ProcessHandle process_;
};

INSTANTIATE_TEST_SUITE_P(Refusals, ProcessShortageTest, testing::Values(1, kAll));

TEST_P(ProcessShortageTest, WaitsForAChildThatHasBegun) {
    start(untilGo());
    awaitBeginning();
    EXPECT_FALSE(process_.wait(0));
    EXPECT_FALSE(process_.wait(50));
    EXPECT_EQ(process_.exitCode(), -1);
    go();
    ASSERT_TRUE(process_.wait(kPatienceMs));
    EXPECT_EQ(process_.exitCode(), 7);
    EXPECT_TRUE(process_.wait(0));
    EXPECT_TRUE(isGone(process_.processId()));
    EXPECT_EQ(trace(), "begun\n");
}

TEST_P(ProcessShortageTest, WaitsForItWithoutALimit) {
    start("exit 7");
    ASSERT_TRUE(process_.wait(ProcessHandle::kForever));
    EXPECT_EQ(process_.exitCode(), 7);
}

TEST_P(ProcessShortageTest, SeesThatItHasEndedWithoutWaiting) {
    start("exit 7");
    EXPECT_TRUE(TestSupport::waitUntil([this] { return process_.wait(0); }));
    EXPECT_EQ(process_.exitCode(), 7);
}

TEST_P(ProcessShortageTest, WaitsForItOrForAnother) {
    NativeSignal other;
    ASSERT_FALSE(other.open());
    start(untilGo());
    other.on();
    EXPECT_FALSE(process_.waitUnless(other.handle()));
    EXPECT_EQ(process_.exitCode(), -1);
    other.off();
    go();
    ASSERT_TRUE(process_.waitUnless(other.handle()));
    EXPECT_EQ(process_.exitCode(), 7);
}

TEST_P(ProcessShortageTest, EndsIt) {
    start("exec sleep 100");
    awaitBeginning();
    EXPECT_FALSE(process_.terminate(0));
    ASSERT_TRUE(process_.wait(kPatienceMs));
    EXPECT_EQ(process_.exitCode(), 128 + SIGTERM);
}

TEST_P(ProcessShortageTest, EndsWhatDoesNotHeedTheRequest) {
    start("trap \"\" TERM; echo ready >> \"" + trace_ + "\"; " + untilGo());
    EXPECT_TRUE(TestSupport::waitUntil([this] { return trace() == "begun\nready\n"; }));
    EXPECT_FALSE(process_.terminate(0));
    ASSERT_TRUE(process_.wait(kPatienceMs));
    EXPECT_EQ(process_.exitCode(), 128 + SIGKILL);
}

TEST_P(ProcessShortageTest, LeavesNothingOfOneThatIsLetGoOf) {
    start(untilGo());
    const std::int64_t id = process_.processId();
    process_.close();
    EXPECT_FALSE(process_.isOpen());
    EXPECT_EQ(process_.processId(), 0);
    EXPECT_FALSE(isGone(id));
    go();
    EXPECT_TRUE(TestSupport::waitUntil([id] { return isGone(id); }));
}

TEST_P(ProcessShortageTest, MovesWithItsHandle) {
    start(untilGo());
    ProcessHandle moved(std::move(process_));
    EXPECT_FALSE(process_.isOpen());
    go();
    ASSERT_TRUE(moved.wait(kPatienceMs));
    EXPECT_EQ(moved.exitCode(), 7);
}

TEST_P(ProcessShortageTest, HoldsInTheForegroundToo) {
    toRefuse = GetParam();
    const OsError error =
        startInForeground({"sh", "-c", "echo begun >> \"" + trace_ + "\"; exit 7"}, process_);
    ASSERT_FALSE(error) << error.text();
    ASSERT_TRUE(process_.wait(kPatienceMs));
    EXPECT_EQ(process_.exitCode(), 7);
    EXPECT_EQ(trace(), "begun\n");
}

}  // namespace
