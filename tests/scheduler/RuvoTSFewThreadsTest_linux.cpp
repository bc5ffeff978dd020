// A system that has hardly any threads and processes left for the service's user.
// A program of its own: it starts itself as that user.

#include "runtime/platform/Environment.h"
#include "runtime/platform/Process.h"
#include "scheduler/RuvoTSEngine.h"
#include "scheduler/RuvoTSExecTask.h"
#include "scheduler/RuvoTSTaskSet.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

using namespace RuvoService;

namespace {

constexpr int kTasks = 60;
constexpr rlim_t kLeft = 40;  // threads and processes that there may be besides
constexpr uid_t kUsers = 100'000;
constexpr auto kPatience = std::chrono::seconds(100);

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

int serve(const std::string& folder) {
    if (!leaveAdministration(folder)) return 2;
    VornPlatform::setEnv("TEMP", folder);
    VornPlatform::setEnv("TMPDIR", folder);
    TestSupport::provideCommandInterpreter();
    const TestSupport::LogCapture log(2);
    RuvoTSEngine engine(nullptr);
    engine.start();
    if (!limitThreads()) return 2;
    RuvoTSTaskSet& set = RuvoTSTaskSet::getInstance();
    const RuvoTSSeconds due = currentTime() + 2;
    for (int i = 0; i < kTasks; ++i) {
        const std::string name = "t" + std::to_string(i);
        set.insert(RuvoTSTask::make<RuvoTSExecTask>(name, due, RuvoTSTask::Once, "echo", "",
                                                    name + " >>" + folder + "/ran", ""),
                   false);
    }
    const bool done = TestSupport::waitUntil([&] { return set.size() == 0; }, kPatience);
    std::ofstream told(folder + "/told");
    for (const std::string& line : log.texts(2)) told << line << '\n';
    told.close();
    std::_Exit(done ? 0 : 1);
}

// ---- the parent ------------------------------------------------------------------

TEST(RuvoTSFewThreadsTest, EveryTaskRunsOnceHoweverFewThreadsThereAre) {
    const TestSupport::TemporaryDirectory folder;
    VornPlatform::ProcessHandle service;
    ASSERT_FALSE(VornPlatform::startProcess(
        '"' + VornPlatform::executablePath() + "\" --serve \"" + folder.text() + '"', service));
    ASSERT_TRUE(service.wait(120'000));
    EXPECT_EQ(service.exitCode(), 0) << "1: not all came to their end";
    std::vector<std::string> expected;
    for (int i = 0; i < kTasks; ++i) expected.push_back("t" + std::to_string(i));
    std::vector<std::string> ran = linesOf(folder.file("ran"));
    std::sort(expected.begin(), expected.end());
    std::sort(ran.begin(), ran.end());
    EXPECT_EQ(ran, expected);

    const auto told = linesOf(folder.file("told"));
    const auto count = [&](std::string_view text) {
        return std::count_if(told.begin(), told.end(), [&](const std::string& line) {
            return line.find(text) != line.npos;
        });
    };
    const auto begun = count("the system is short of threads or processes");
    EXPECT_GE(begun, 1) << "the limit was none";
    EXPECT_LE(begun, 3);
    EXPECT_EQ(count("tasks run again without waiting for each other"), begun);
    EXPECT_LT(told.size(), 20u) << testing::PrintToString(told);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string_view(argv[1]) == "--serve") return serve(argv[2]);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
