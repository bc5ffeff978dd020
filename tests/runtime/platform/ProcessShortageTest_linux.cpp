// A system that has no descriptor for a child that has begun, as another thread has
// taken the one that was kept for it; no memory for what a child is to begin with; or
// no pipe to the thread that collects those that nobody waits for.

#include "runtime/platform/Foreground.h"
#include "runtime/platform/NativeSignal.h"
#include "runtime/platform/Process.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

std::atomic<int> toRefuse{0};  // requests for a descriptor of a process
std::atomic<int> refused{0};
std::atomic<void*> realCall{nullptr};  // no local static, whose guard calls us
std::atomic<int> spawnStep{0};  // of the settings of a child, which one is refused; 0: none
std::atomic<int> spawnSteps{0};  // so many have been made
std::atomic<int> pipesToRefuse{0};

bool isStepRefused() { return ++spawnSteps == spawnStep; }

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

extern "C" [[gnu::visibility("default")]] int posix_spawn_file_actions_addopen(
    posix_spawn_file_actions_t* actions, int descriptor, const char* path, int flags,
    mode_t mode) noexcept {
    if (isStepRefused()) return ENOMEM;
    using Call = int (*)(posix_spawn_file_actions_t*, int, const char*, int, mode_t);
    const auto call =
        reinterpret_cast<Call>(::dlsym(RTLD_NEXT, "posix_spawn_file_actions_addopen"));
    return call(actions, descriptor, path, flags, mode);
}

extern "C" [[gnu::visibility("default")]] int posix_spawn_file_actions_addclosefrom_np(
    posix_spawn_file_actions_t* actions, int from) noexcept {
    if (isStepRefused()) return ENOMEM;
    using Call = int (*)(posix_spawn_file_actions_t*, int);
    const auto call =
        reinterpret_cast<Call>(::dlsym(RTLD_NEXT, "posix_spawn_file_actions_addclosefrom_np"));
    return call(actions, from);
}

extern "C" [[gnu::visibility("default")]] int pipe2(int* ends, int flags) noexcept {
    if (pipesToRefuse > 0) {
        --pipesToRefuse;
        errno = EMFILE;
        return -1;
    }
    using Call = int (*)(int*, int);
    return reinterpret_cast<Call>(::dlsym(RTLD_NEXT, "pipe2"))(ends, flags);
}

using namespace VornPlatform;

namespace {

constexpr int kPatienceMs = 20'000;
constexpr int kAll = INT_MAX;

bool isGone(std::int64_t process) {
    return ::kill(static_cast<pid_t>(process), 0) != 0 && errno == ESRCH;
}

std::int64_t startAndLetGo(const std::string& line) {
    ProcessHandle process;
    EXPECT_FALSE(startProcess(line, process));
    return process.processId();
}

bool isCollectedAfterAnotherHadNoPipe() {
    const TestSupport::TemporaryDirectory folder;
    const std::string go = folder.file("go");
    const std::string line = "sh -c 'until test -e \"" + go + "\"; do sleep 0.02; done'";
    pipesToRefuse = 1;
    const std::int64_t first = startAndLetGo(line);
    const bool wasRefused = pipesToRefuse == 0;
    const std::int64_t second = startAndLetGo(line);
    TestSupport::writeFile(go, "");
    const bool isCollected = TestSupport::waitUntil([second] { return isGone(second); });
    ::waitpid(static_cast<pid_t>(first), nullptr, 0);  // nobody else does
    return wasRefused && isCollected;
}

// In a process of its own, where no child has been let go of yet.
TEST(ProcessReaperDeathTest, IsTriedAgainWhenThereWasNoPipeForIt) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::_Exit(isCollectedAfterAnotherHadNoPipe() ? 0 : 1),
                testing::ExitedWithCode(0), "");
}

// More than the system lets anybody wait for at once.
TEST(ProcessReaperTest, CollectsAnyNumberForWhichThereIsNoDescriptor) {
    const TestSupport::TemporaryDirectory folder;
    const std::string go = folder.file("go");
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit low{40, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    toRefuse = kAll;
    std::vector<std::int64_t> children;
    for (int i = 0; i < 50; ++i) {
        children.push_back(
            startAndLetGo("sh -c 'until test -e \"" + go + "\"; do sleep 0.1; done'"));
    }
    toRefuse = 0;
    TestSupport::writeFile(go, "");
    for (const std::int64_t child : children) {
        EXPECT_TRUE(TestSupport::waitUntil([child] { return isGone(child); }));
    }
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
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

// It would begin with our own streams, or with descriptors that are none of its.
TEST(ProcessSettingsTest, StartsNothingThatLacksOneOfItsSettings) {
    const TestSupport::TemporaryDirectory folder;
    const std::string trace = folder.file("trace");
    const std::string line = "sh -c 'echo begun >> \"" + trace + "\"'";
    ProcessHandle process;
    int refusals = 0;
    for (; refusals < 100; ++refusals) {
        spawnSteps = 0;
        spawnStep = refusals + 1;
        const OsError error = startProcess(line, process);
        spawnStep = 0;
        if (!error) break;
        EXPECT_EQ(error.code(), ENOMEM);
        EXPECT_FALSE(process.isOpen());
    }
    EXPECT_EQ(refusals, 4) << "three streams, and all other descriptors";
    ASSERT_TRUE(process.wait(kPatienceMs));
    EXPECT_EQ(process.exitCode(), 0);
    EXPECT_EQ(TestSupport::readFile(trace), "begun\n") << "one has begun";
}

}  // namespace
