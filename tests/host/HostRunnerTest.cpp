#include "host/HostRunner.h"

#include "host/HostCommandLine.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace RuvoHost {
namespace {

// A module that notes what its host does with it.
struct FakeModule {
    static inline std::string calls;
    static inline int createResult = 0;
    static inline int runResult = 0;
    static inline int checkResult = 0;

    static int create(const char* path, const char*, char* error, size_t size) {
        calls += std::string("create ") + path + ";";
        if (createResult != 0) std::snprintf(error, size, "cannot create");
        return createResult;
    }
    static int run(void (*started)(void*), void* context, char* error, size_t size) {
        calls += "run;";
        if (runResult == 0) {
            started(context);
        } else {
            std::snprintf(error, size, "cannot run");
        }
        return runResult;
    }
    static void stop() { calls += "stop;"; }
    static void reload() { calls += "reload;"; }
    static void addresses(char* text, size_t size) {
        std::snprintf(text, size, "tcp:[::]:1\nudp:[::]:2\n");
    }
    static int destroy(int) {
        calls += "destroy;";
        return 0;
    }
    static int check(const char* path, void (*found)(void*, const char*), void* context) {
        calls += std::string("check ") + path + ";";
        if (checkResult != 0) found(context, "one line");
        return checkResult;
    }
};

class HostRunner : public ::testing::Test {
protected:
    HostRunner() {
        FakeModule::calls.clear();
        FakeModule::createResult = FakeModule::runResult = FakeModule::checkResult = 0;
    }

    const RuvoHostApi module_ = {RUVO_HOST_API_VERSION, "1.2.3",           &FakeModule::create,
                                 &FakeModule::run,      &FakeModule::stop, &FakeModule::reload,
                                 &FakeModule::addresses, &FakeModule::destroy, &FakeModule::check};
};

TEST_F(HostRunner, DrivesTheModuleFromCreateToDestroyAndSaysWhenItIsReady) {
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(runService(module_, "file"), kSuccess);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "ruvohost: listening on tcp:[::]:1\n"
              "ruvohost: listening on udp:[::]:2\n"
              "ruvohost: ready\n");
    EXPECT_EQ(FakeModule::calls, "create file;run;destroy;");
}

TEST_F(HostRunner, EndsWhereNothingCouldBeCreated) {
    FakeModule::createResult = 1;
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(runService(module_, "file"), kFailure);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "ruvohost: cannot create\n");
    EXPECT_EQ(FakeModule::calls, "create file;");
}

TEST_F(HostRunner, DestroysWhatCouldNotBeRun) {
    FakeModule::runResult = 1;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(runService(module_, "file"), kFailure);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "ruvohost: cannot run\n");
    EXPECT_EQ(FakeModule::calls, "create file;run;destroy;");
}

TEST_F(HostRunner, PrintsWhatACheckFinds) {
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(checkProperties(module_, "file"), kSuccess);
    FakeModule::checkResult = 1;
    EXPECT_EQ(checkProperties(module_, "file"), kFailure);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "one line\n");
    EXPECT_EQ(FakeModule::calls, "check file;check file;");
}

TEST_F(HostRunner, LeavesWithWhatTheCommandLineHasToSay) {
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    HostCommandLine line;
    line.action = HostAction::Exit;
    line.output = "help\n";
    EXPECT_EQ(leave(line), kSuccess);
    line.output = "";
    line.errors = "bad\n";
    line.exitStatus = kBadUsage;
    EXPECT_EQ(leave(line), kBadUsage);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "help\n");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "bad\n");
}

}  // namespace
}  // namespace RuvoHost
