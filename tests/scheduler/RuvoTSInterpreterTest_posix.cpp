// Runs without a command interpreter, or with one that cannot be started.

#include "runtime/platform/BatchCommand.h"
#include "scheduler/RuvoTSExecTask.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using namespace RuvoService;
using TestSupport::kNoon;
using TestSupport::LogCapture;

namespace {

constexpr const char* kMissing = "RuvoTSEngine::initialize: there is no command interpreter";

// The interpreter is what a case puts into a folder of ours, and no other.
class RuvoTSInterpreterTest : public testing::Test {
protected:
    RuvoTSInterpreterTest() {
        provide("");
        EXPECT_TRUE(VornPlatform::provideInterpreter(folder_.text()));
        std::filesystem::remove(program_);
    }
    ~RuvoTSInterpreterTest() override { TestSupport::provideCommandInterpreter(); }

    void provide(const std::string& content) const {
        TestSupport::writeFile(program_, content);
        std::filesystem::permissions(program_, std::filesystem::perms::owner_all);
    }
    void expectNoBatchFile() const {
        for (const auto& entry : std::filesystem::directory_iterator(store_.text())) {
            EXPECT_NE(entry.path().extension(), ".bat");
        }
    }
    std::int32_t run() const {
        const auto task = RuvoTSTask::make<RuvoTSExecTask>("task", kNoon + 10, RuvoTSTask::Daily,
                                                           "true", "", "", "");
        const auto status = task->runtaskonsystem();
        task->retire();
        return status.value_or(-12345);
    }

    TestSupport::Variable path_{"PATH", "/nowhere"};
    TestSupport::TemporaryDirectory folder_;
    const std::string program_ = folder_.file("cmd");
    TestSupport::StoreFolder store_;
    TestSupport::TestClock clock_;
    const LogCapture log_{2};
};

TEST_F(RuvoTSInterpreterTest, AMissingOneIsToldAsShellsTellIt) {
    EXPECT_EQ(run(), 127);
    ASSERT_EQ(log_.texts(2).size(), 1u);
    EXPECT_TRUE(log_.texts(2)[0].starts_with("RuvoTSExecTask::runtaskonsystem: cannot start the "
                                             "command interpreter for task: "));
    expectNoBatchFile();
}

TEST_F(RuvoTSInterpreterTest, OneThatCannotBeStartedIsToldAsSystemTellsIt) {
    provide("\x7F no program at all");
    EXPECT_EQ(run(), -1);
    EXPECT_EQ(log_.texts(2).size(), 1u);
    expectNoBatchFile();
}

TEST_F(RuvoTSInterpreterTest, AMissingOneIsToldOnceAtTheStart) {
    {
        RuvoTSEngine engine(nullptr);
        EXPECT_EQ(log_.beginning(kMissing).size(), 0u);
        engine.start();
        EXPECT_EQ(log_.beginning(kMissing).size(), 1u);
        EXPECT_EQ(run(), 127);
        engine.stop();
    }
    EXPECT_EQ(log_.beginning(kMissing).size(), 1u);
    provide("#!/bin/sh\n");
    RuvoTSEngine engine(nullptr);
    engine.start();
    engine.stop();
    EXPECT_EQ(log_.beginning(kMissing).size(), 1u);
}

}  // namespace
