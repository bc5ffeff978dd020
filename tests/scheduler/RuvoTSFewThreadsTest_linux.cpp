// A system that has hardly any threads and processes left for the service's user, or
// descriptors for the service, or that fails what it cannot do without. A program of
// its own: it starts itself.

#include "runtime/platform/Environment.h"
#include "runtime/platform/Process.h"
#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSEngine.h"
#include "scheduler/RuvoTSExecTask.h"
#include "scheduler/RuvoTSRuns.h"
#include "scheduler/RuvoTSStore.h"
#include "scheduler/RuvoTSTaskSet.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

using namespace RuvoService;
using TestSupport::exists;

namespace {

constexpr int kTasks = 60;
constexpr rlim_t kLeft = 40;  // threads and processes that there may be besides
constexpr int kSpare = 4;  // more descriptors than a run needs
constexpr uid_t kUsers = 100'000;
// More than the two minutes that a task waits which is made when its time is past.
constexpr auto kPatience = std::chrono::seconds(200);

std::vector<std::string> linesOf(const std::string& file) {
    std::istringstream text(TestSupport::readFile(file));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

// ---- the service -----------------------------------------------------------------

// All threads of this user, other programs' as well.
rlim_t threadsOf(uid_t user) {
    std::error_code ignored;
    rlim_t count = 0;
    for (const auto& process : std::filesystem::directory_iterator("/proc", ignored)) {
        std::ifstream status(process.path() / "status");
        bool mine = false;
        for (std::string line; std::getline(status, line);) {
            std::istringstream fields(line);
            std::string key;
            rlim_t value = 0;
            if (!(fields >> key >> value)) continue;
            if (key == "Uid:") mine = value == user;
            if (key == "Threads:" && mine) count += value;
        }
    }
    return count;
}

// The administrator's threads are not limited: he becomes somebody whom nobody
// else is.
bool leaveAdministration(const std::string& folder) {
    if (::getuid() != 0) return true;
    const auto user = kUsers + static_cast<uid_t>(::getpid());
    return ::chown(folder.c_str(), user, user) == 0 && ::setgid(user) == 0 && ::setuid(user) == 0;
}

bool limitThreads() {
    const rlim_t most = std::max<rlim_t>(threadsOf(::getuid()), 2) + kLeft;
    const rlimit limit{most, most};
    return ::setrlimit(RLIMIT_NPROC, &limit) == 0;
}

void prepare(const std::string& folder) {
    VornPlatform::setEnv("TEMP", folder);
    VornPlatform::setEnv("TMPDIR", folder);
    TestSupport::provideCommandInterpreter();
}

// Of a task that tells, in the folder, that it ran.
RuvoTSTaskSet::Task taskOf(const std::string& name, RuvoTSSeconds due, const std::string& folder) {
    return RuvoTSTask::make<RuvoTSExecTask>(name, due, RuvoTSTask::Once, "echo", "",
                                            name + " >>" + folder + "/ran", "");
}

[[noreturn]] void leave(bool done, const TestSupport::LogCapture& log,
                        const std::string& folder) {
    std::ofstream told(folder + "/told");
    for (const std::string& line : log.texts(2)) told << line << '\n';
    told.close();
    std::_Exit(done ? 0 : 1);
}

int serveWithFewThreads(const std::string& folder) {
    if (!leaveAdministration(folder)) return 2;
    prepare(folder);
    const TestSupport::LogCapture log(2);
    RuvoTSEngine engine(nullptr);
    engine.start();
    if (!limitThreads()) return 2;
    RuvoTSTaskSet& set = RuvoTSTaskSet::getInstance();
    const RuvoTSSeconds due = currentTime() + 2;
    for (int i = 0; i < kTasks; ++i) {
        set.insert(taskOf("t" + std::to_string(i), due, folder), false);
    }
    leave(TestSupport::waitUntil([&] { return set.size() == 0; }, kPatience), log, folder);
}

// All descriptors that there may be, but for some.
class Descriptors {
public:
    explicit Descriptors(int spare) {
        for (int one = 0; (one = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
            held_.push_back(one);
        }
        for (; spare > 0; --spare) giveOne();
    }
    ~Descriptors() {
        while (!held_.empty()) giveOne();
    }

private:
    void giveOne() {
        ::close(held_.back());
        held_.pop_back();
    }
    std::vector<int> held_;
};

int serveWithFewDescriptors(const std::string& folder) {
    prepare(folder);
    const TestSupport::LogCapture log(2);
    VORN_LOG(2, "begins");  // and opens its file
    RuvoTSEngine engine(nullptr);
    engine.start();
    const rlimit limit{64, 64};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return 2;
    RuvoTSTaskSet& set = RuvoTSTaskSet::getInstance();
    bool done = true;
    for (int spare = 0; spare < kSpare; ++spare) {
        std::optional<Descriptors> held(spare);
        const std::string name = "t" + std::to_string(spare);
        const auto task =
            set.schedule(name, [&] { return taskOf(name, currentTime() + 2, folder); });
        // Its run has begun, and no run is under way: it waits for another try.
        const auto refused = [&] {
            return RuvoTSRuns::getInstance().count() == 0 &&
                   task->getState() == RuvoTSTask::Running;
        };
        // It is refused what it needs, or content with what there is.
        done &= TestSupport::waitUntil([&] { return refused() || set.size() == 0; }, kPatience);
        if (spare == 0) done &= set.size() == 1;
        held.reset();
        done &= TestSupport::waitUntil([&] { return set.size() == 0; }, kPatience);
    }
    done &= TestSupport::waitUntil([] { return linesOf(RuvoTSStore::names().current).empty(); },
                                   kPatience);
    leave(done, log, folder);
}

// ---- the parent ------------------------------------------------------------------

// Has the service run until it ends, and returns which tasks ran, one entry a run.
std::vector<std::string> runsOf(const std::string& mode, const std::string& folder) {
    VornPlatform::ProcessHandle service;
    EXPECT_FALSE(VornPlatform::startProcess(
        '"' + VornPlatform::executablePath() + "\" " + mode + " \"" + folder + '"', service));
    EXPECT_TRUE(service.wait(300'000));
    EXPECT_EQ(service.exitCode(), 0) << "1: not all came to their end";
    std::vector<std::string> ran = linesOf(folder + "/ran");
    std::sort(ran.begin(), ran.end());
    return ran;
}

std::vector<std::string> namesOf(int tasks) {
    std::vector<std::string> names;
    for (int i = 0; i < tasks; ++i) names.push_back("t" + std::to_string(i));
    std::sort(names.begin(), names.end());
    return names;
}

TEST(RuvoTSFewDescriptorsTest, EveryTaskRunsOnceHoweverFewDescriptorsThereAre) {
    const TestSupport::TemporaryDirectory folder;
    EXPECT_EQ(runsOf("--few-descriptors", folder.text()), namesOf(kSpare));
    std::size_t refused = 0;
    for (const std::string& line : linesOf(folder.file("told"))) {
        refused += line.find("the system is short of means to run tasks") != line.npos ? 1u : 0u;
        EXPECT_EQ(line.find(".bat"), line.npos) << line;
    }
    EXPECT_GE(refused, 1u) << "there were enough";
    for (const auto& entry :
         std::filesystem::directory_iterator(TestSupport::toPath(folder.text()))) {
        EXPECT_NE(entry.path().extension(), ".bat");
    }
}

TEST(RuvoTSFewThreadsTest, EveryTaskRunsOnceHoweverFewThreadsThereAre) {
    const TestSupport::TemporaryDirectory folder;
    EXPECT_EQ(runsOf("--few-threads", folder.text()), namesOf(kTasks));

    const auto told = linesOf(folder.file("told"));
    const auto count = [&](std::string_view text) {
        return std::count_if(told.begin(), told.end(), [&](const std::string& line) {
            return line.find(text) != line.npos;
        });
    };
    const auto begun = count("the system is short of means to run tasks");
    EXPECT_GE(begun, 1) << "the limit was none";
    EXPECT_LE(begun, 3);
    EXPECT_EQ(count("tasks run again without waiting for each other"), begun);
    EXPECT_LT(told.size(), 20u) << testing::PrintToString(told);
}

// ---- a wait that the system fails ------------------------------------------------

// Has the wait for a command fail while it lives: a thread may wait for fewer
// descriptors than it does, and is woken to find that out.
class FailingWaits {
public:
    explicit FailingWaits(pthread_t waiter) {
        ::getrlimit(RLIMIT_NOFILE, &limit_);
        const rlimit none{1, limit_.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
        struct sigaction wake {};
        wake.sa_handler = [](int) {};
        ::sigaction(SIGUSR1, &wake, nullptr);
        ::pthread_kill(waiter, SIGUSR1);
    }
    ~FailingWaits() { ::setrlimit(RLIMIT_NOFILE, &limit_); }

private:
    rlimit limit_{};
};

class RuvoTSFailingWaitTest : public testing::Test {
protected:
    RuvoTSFailingWaitTest() {
        TestSupport::provideCommandInterpreter();
        task_ = RuvoTSTask::make<RuvoTSExecTask>(
            "task", TestSupport::kNoon + 10, RuvoTSTask::Daily,
            "touch began; while test -e began -a ! -e end; do sleep 0.02; done; exit 7",
            folder_.text(), "", "");
        run_ = std::thread([this] {
            status_ = task_->runtaskonsystem().value_or(-12345);
            done_ = true;
        });
        EXPECT_TRUE(TestSupport::waitUntil([&] { return exists(folder_.file("began")); }));
    }
    ~RuvoTSFailingWaitTest() override {
        TestSupport::writeFile(folder_.file("end"), "");
        if (run_.joinable()) run_.join();
        task_->retire();
    }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    TestSupport::OpenTaskSet open_;
    VornSupport::VornSmartPointer<RuvoTSExecTask> task_;
    std::atomic<std::int32_t> status_{0};
    std::atomic<bool> done_{false};
    std::thread run_;
};

TEST_F(RuvoTSFailingWaitTest, GoesOnWhenTheSystemLetsItWaitAgain) {
    {
        const FailingWaits failing(run_.native_handle());
        EXPECT_FALSE(TestSupport::waitUntil([&] { return done_.load(); },
                                            std::chrono::milliseconds(500)));
    }
    TestSupport::writeFile(folder_.file("end"), "");
    run_.join();
    EXPECT_EQ(status_, 7);
}

// Not the end of the service, which gives no status.
TEST_F(RuvoTSFailingWaitTest, EndsTheRunWithAStatusWhenItStaysSo) {
    const TestSupport::LogCapture log(2);
    VORN_LOG(2, "begins");  // and opens its file
    {
        const FailingWaits failing(run_.native_handle());
        EXPECT_TRUE(TestSupport::waitUntil([&] { return done_.load(); }));
    }
    EXPECT_EQ(status_, -1);
    EXPECT_TRUE(log.has(2, "RuvoTSExecTask::runtaskonsystem: cannot wait for the end of the "
                           "command of task"));
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view mode = argc == 3 ? argv[1] : "";
    if (mode == "--few-threads") return serveWithFewThreads(argv[2]);
    if (mode == "--few-descriptors") return serveWithFewDescriptors(argv[2]);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
