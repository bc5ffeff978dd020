#include "runtime/support/VornLogging.h"

#include "runtime/support/VornMutex.h"
#include "runtime/support/VornThreadName.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace VornSupport;
using VornPlatform::SystemLogSeverity;

namespace {

class VornLoggingTest : public testing::Test {
protected:
    VornLoggingTest() {
        log_.setFile(path_, 0, 0);
        log_.setTarget(static_cast<int>(VornLogTarget::File));
        log_.setLogLevel(9);
    }
    ~VornLoggingTest() override {
        VornLogging::setAccessAllowed(true);
        log_.setFile(path_, 0, 0);  // takes what is held back from later tests
        log_.flush();
        log_.setTarget(static_cast<int>(VornLogTarget::None));
        log_.setLogLevel(1);
        log_.setFile("", 0, 0);
        log_.setSystemWriterForTest(nullptr);
    }

    std::vector<std::string> lines() {
        std::vector<std::string> lines;
        std::istringstream text(TestSupport::readFile(path_));
        for (std::string line; std::getline(text, line);) lines.push_back(line);
        return lines;
    }
    // The lines without their times.
    std::vector<std::string> records() {
        std::vector<std::string> records;
        for (const std::string& line : lines()) records.push_back(line.substr(33));
        return records;
    }

    TestSupport::TemporaryDirectory directory_;
    const std::string path_ = directory_.file("log");
    VornLogging& log_ = VornLogging::getInstance();
};

using Records = std::vector<std::string>;

TEST_F(VornLoggingTest, WritesTimeThreadLevelAndText) {
    VORN_LOG(5, "RuvoService::go: "
                    << "entering");
    const auto all = lines();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_TRUE(std::regex_match(
        all[0], std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}[+-]\d\d:\d\d \[main\] 5 )"
                           R"(RuvoService::go: entering)")))
        << all[0];
}

TEST_F(VornLoggingTest, NamesTheThread) {
    std::thread([] {
        setThreadName("TCPServer");
        VORN_LOG(0, "text");
    }).join();
    VORN_LOG(0, "text");
    EXPECT_EQ(records(), (Records{"[TCPServer] 0 text", "[main] 0 text"}));
}

TEST_F(VornLoggingTest, WritesEveryKindOfPiece) {
    const char* none = nullptr;
    int value = 0;
    std::ostringstream address;
    address << "0x" << std::hex << reinterpret_cast<std::uintptr_t>(&value);
    const std::string text = "string";
    char buffer[] = "buffer";
    VORN_LOG(1, text << ' ' << std::string_view("view") << ' ' << "chars" << ' ' << buffer << ' '
                     << none << ' ' << 'c' << ' ' << true << ' ' << false);
    VORN_LOG(1, -1 << ' ' << 2u << ' ' << -3L << ' ' << 4UL << ' ' << -5LL << ' ' << 6ULL << ' '
                   << short{-7} << ' ' << std::uint8_t{8});
    VORN_LOG(1, INT64_MIN << ' ' << INT64_MAX << ' ' << UINT64_MAX);
    VORN_LOG(1, static_cast<const void*>(&value)
                    << ' ' << &value << ' ' << static_cast<void*>(nullptr));
    EXPECT_EQ(records(),
              (Records{"[main] 1 string view chars buffer (null) c true false",
                       "[main] 1 -1 2 -3 4 -5 6 -7 8",
                       "[main] 1 -9223372036854775808 9223372036854775807 18446744073709551615",
                       "[main] 1 " + address.str() + ' ' + address.str() + " 0x0"}));
}

TEST_F(VornLoggingTest, WritesRecordsUpToTheLevel) {
    log_.setLogLevel(3);
    EXPECT_EQ(log_.getLogLevel(), 3);
    for (const int level : {0, 3, 4, 9}) {
        EXPECT_EQ(VornLogging::isOn(level), level <= 3);
        VORN_LOG(level, level);
        log_ << setloglevel(level) << "untested" << endrecord;
    }
    EXPECT_EQ(records(),
              (Records{"[main] 0 0", "[main] 0 untested", "[main] 3 3", "[main] 3 untested"}));
}

TEST_F(VornLoggingTest, IgnoresLevelsThatDoNotExist) {
    for (const int level : {-1, 10, 1000}) {
        log_.setLogLevel(level);
        EXPECT_EQ(log_.getLogLevel(), 9);
        log_ << setloglevel(level) << "no" << endrecord;
    }
    log_.setLogLevel(0);
    EXPECT_EQ(log_.getLogLevel(), 0);
    EXPECT_EQ(records(), Records{});
}

TEST_F(VornLoggingTest, EvaluatesNoPieceOfARecordThatIsOff) {
    int evaluated = 0;
    log_.setLogLevel(4);
    VORN_LOG(5, ++evaluated);
    VORN_LOG(4, ++evaluated);
    EXPECT_EQ(evaluated, 1);
}

TEST_F(VornLoggingTest, WritesNothingWhileAccessIsNotAllowed) {
    VornLogging::setAccessAllowed(false);
    EXPECT_FALSE(VornLogging::isAccessAllowed());
    EXPECT_FALSE(VornLogging::isOn(0));
    log_.setLogLevel(7);
    EXPECT_FALSE(VornLogging::isAccessAllowed());
    VORN_LOG(0, "no");
    log_ << setloglevel(0) << "no" << endrecord;
    VornLogging::setAccessAllowed(true);
    EXPECT_TRUE(VornLogging::isAccessAllowed());
    EXPECT_TRUE(VornLogging::isOn(7));
    VORN_LOG(0, "yes");
    EXPECT_EQ(records(), Records{"[main] 0 yes"});
}

TEST_F(VornLoggingTest, KeepsRecordsOfOneThreadApartThatAreOpenAtOnce) {
    const auto inner = [](int depth, const auto& self) -> std::string {
        VORN_LOG(2, "inner " << (depth > 0 ? self(depth - 1, self) : "end"));
        return "value" + std::to_string(depth);
    };
    VORN_LOG(1, "outer " << inner(1, inner) << " after");
    EXPECT_EQ(records(), (Records{"[main] 2 inner end", "[main] 2 inner value0",
                                  "[main] 1 outer value1 after"}));
}

TEST_F(VornLoggingTest, KeepsANestedRecordThatIsOffOutOfTheOuterOne) {
    log_.setLogLevel(5);
    log_ << setloglevel(1) << "outer";
    log_ << setloglevel(9) << "inner" << endrecord;
    log_ << " goes on" << endrecord;
    EXPECT_EQ(records(), Records{"[main] 1 outer goes on"});
}

TEST_F(VornLoggingTest, SurvivesStatementsThatThrow) {
    const auto fail = []() -> int { throw std::runtime_error("fails"); };
    for (int i = 0; i < 100; ++i) {
        EXPECT_THROW(VORN_LOG(1, "before " << fail()), std::runtime_error);
        VORN_LOG(1, "after " << i);
    }
    const auto all = records();
    ASSERT_EQ(all.size(), 100u);
    for (std::size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(all[i], "[main] 1 after " + std::to_string(i));
    }
}

TEST_F(VornLoggingTest, IgnoresPiecesAndEndsOutsideARecord) {
    std::thread([this] { log_ << "stray" << endrecord << 5 << endrecord; }).join();
    VORN_LOG(1, "record");
    EXPECT_EQ(records(), Records{"[main] 1 record"});
}

TEST_F(VornLoggingTest, KeepsTheErrorState) {
    errno = 1234;
    VORN_LOG(1, "text " << 5 << std::string(100'000, 'x'));
    EXPECT_EQ(errno, 1234);
    log_.setFile(directory_.file("missing") + "/log", 0, 0);
    EXPECT_EQ(errno, 1234);
    VORN_LOG(1, "text " << errno);
    EXPECT_EQ(errno, 1234);
    log_.flush();
    EXPECT_EQ(errno, 1234);
}

TEST_F(VornLoggingTest, NeverMixesTheRecordsOfManyThreads) {
    constexpr int kThreads = 8;
    constexpr int kRecords = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            setThreadName("thread" + std::to_string(t));
            for (int i = 0; i < kRecords; ++i) {
                VORN_LOG(
                    1, i << ' ' << std::string(static_cast<std::size_t>(i % 97), 'x') << ' ' << t);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    std::vector<int> next(kThreads);
    std::string lastTime;
    const auto all = lines();
    ASSERT_EQ(all.size(), static_cast<std::size_t>(kThreads) * kRecords);
    for (const std::string& line : all) {
        const auto t = static_cast<std::size_t>(line.back() - '0');
        const int i = next.at(t)++;
        const std::string name = std::to_string(t);
        ASSERT_EQ(line.substr(33), "[thread" + name + "] 1 " + std::to_string(i) + ' ' +
                                       std::string(static_cast<std::size_t>(i % 97), 'x') + ' ' +
                                       name);
    }
}

TEST_F(VornLoggingTest, TargetNoneWritesNothing) {
    for (const int target : {0, -1, 5, 99}) {
        log_.setTarget(static_cast<int>(VornLogTarget::File));
        log_.setTarget(target);
        EXPECT_EQ(log_.getTarget(), 0);
        VORN_LOG(0, "no");
    }
    EXPECT_EQ(records(), Records{});
}

TEST_F(VornLoggingTest, HoldsRecordsUntilTheFileIsNamed) {
    log_.setFile("", 0, 0);
    VORN_LOG(1, "early");
    log_.setFile(path_, 0, 0);
    VORN_LOG(1, "late");
    EXPECT_EQ(records(), (Records{"[main] 1 early", "[main] 1 late"}));
}

TEST_F(VornLoggingTest, FileStaysWhereItIsWhenTheWorkingDirectoryChanges) {
    const TestSupport::TemporaryDirectory elsewhere;
    const TestSupport::WorkingDirectory inDirectory(directory_.text());
    log_.setFile("relative.log", 0, 0);
    {
        const TestSupport::WorkingDirectory inOther(elsewhere.text());
        VORN_LOG(1, "text");
    }
    EXPECT_NE(TestSupport::readFile(directory_.file("relative.log")), "");
    EXPECT_FALSE(TestSupport::exists(elsewhere.file("relative.log")));
}

TEST_F(VornLoggingTest, RotatesItsFile) {
    log_.setFile(path_, 200, 1);
    for (int i = 0; i < 10; ++i) VORN_LOG(1, std::string(100, 'x') << i);
    EXPECT_EQ(records(), Records{"[main] 1 " + std::string(100, 'x') + "9"});
    EXPECT_NE(TestSupport::readFile(path_ + ".1").find("x8\n"), std::string::npos);
    EXPECT_FALSE(TestSupport::exists(path_ + ".2"));
}

TEST_F(VornLoggingTest, CatchesUpWhenItsFolderAppears) {
    const std::string folder = directory_.file("folder");
    log_.setFile(folder + "/log", 0, 0);
    VORN_LOG(1, "early");
    std::filesystem::create_directory(TestSupport::toPath(folder));
    log_.flush();
    EXPECT_NE(TestSupport::readFile(folder + "/log").find("early\n"), std::string::npos);
}

TEST_F(VornLoggingTest, CountsTheRecordsThatAreLost) {
    const std::string folder = directory_.file("folder");
    log_.setFile(folder + "/log", 0, 0);
    for (int i = 0; i < 40; ++i) VORN_LOG(1, std::string(40'000, 'x'));
    std::filesystem::create_directory(TestSupport::toPath(folder));
    log_.flush();
    EXPECT_TRUE(std::regex_search(TestSupport::readFile(folder + "/log"),
                                  std::regex(R"(\[VornLogging\] 0 14 records lost\n$)")));
}

std::vector<std::pair<SystemLogSeverity, std::string>> entries;

TEST_F(VornLoggingTest, SystemTargetGetsSeverityAndTextWithoutTime) {
    entries.clear();
    log_.setSystemWriterForTest([](SystemLogSeverity severity, const std::string& text) {
        entries.emplace_back(severity, text);
    });
    log_.setTarget(static_cast<int>(VornLogTarget::System));
    for (int level = 0; level <= 9; ++level) VORN_LOG(level, "a\nb");
    using enum SystemLogSeverity;
    const std::vector<SystemLogSeverity> severities{
        Error, Warning, Warning, Notice, Information, Information, Debug, Debug, Debug, Debug};
    ASSERT_EQ(entries.size(), severities.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        EXPECT_EQ(entries[i].first, severities[i]) << i;
        EXPECT_EQ(entries[i].second, "[main] " + std::to_string(i) + " a\\nb");
    }
    EXPECT_EQ(records(), Records{});
}

TEST_F(VornLoggingTest, StandardErrorTargetsWriteThere) {
    log_.setTarget(static_cast<int>(VornLogTarget::StandardError));
    testing::internal::CaptureStderr();
    VORN_LOG(1, "only there");
    log_.setTarget(static_cast<int>(VornLogTarget::FileAndStandardError));
    VORN_LOG(1, "in both");
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(std::regex_match(
        text, std::regex(R"(\S+ \[main\] 1 only there\n\S+ \[main\] 1 in both\n)")))
        << text;
    EXPECT_EQ(records(), Records{"[main] 1 in both"});
}

TEST_F(VornLoggingTest, TellsOnceOnStandardErrorThatTheFileCannotBeWritten) {
    const std::string folder = directory_.file("folder");
    std::filesystem::create_directory(TestSupport::toPath(folder));
    const std::string beginning = "VornLogging: the log file " + folder + " cannot be written: ";
    const auto told = [&](const auto& work) {
        testing::internal::CaptureStderr();
        work();
        return testing::internal::GetCapturedStderr();
    };
    log_.setFile(folder, 0, 0);
    const std::string line = told([&] { log_.openFile(); });
    EXPECT_EQ(line.rfind(beginning, 0), 0u) << line;
    EXPECT_GT(line.size(), beginning.size() + 1);
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
    EXPECT_EQ(told([&] {
                  log_.openFile();
                  VORN_LOG(1, "text");
                  log_.flush();
              }),
              "");
    log_.setFile(folder, 0, 0);
    EXPECT_EQ(told([&] { log_.openFile(); }), line);  // configured anew
    log_.setFile(folder, 0, 0);
    EXPECT_EQ(told([&] { VORN_LOG(1, "text"); }), line);
}

TEST_F(VornLoggingTest, OpensItsFileOnlyWhereRecordsGoThere) {
    log_.setTarget(static_cast<int>(VornLogTarget::StandardError));
    log_.openFile();
    EXPECT_FALSE(TestSupport::exists(path_));
    log_.setTarget(static_cast<int>(VornLogTarget::FileAndStandardError));
    log_.openFile();
    EXPECT_TRUE(TestSupport::exists(path_));
}

struct LogsAtTheEnd {
    ~LogsAtTheEnd() { VORN_LOG(1, "from a destructor"); }
};

TEST_F(VornLoggingTest, WorksWhileThreadLocalObjectsAreDestroyed) {
    std::thread([] {
        thread_local LogsAtTheEnd last;
        static_cast<void>(last);
        VORN_LOG(1, "from the thread");
    }).join();
    EXPECT_EQ(records(), (Records{"[main] 1 from the thread", "[main] 1 from a destructor"}));
}

// Not a benchmark: it only tells an atomic read from a lock.
TEST_F(VornLoggingTest, RecordsThatAreOffCostLessThanALock) {
    constexpr int kRecords = 1'000'000;
    log_.setLogLevel(1);
    VornMutex mutex;
    const auto leaveOut = [] {
        for (int i = 0; i < kRecords; ++i) VORN_LOG(9, i);
    };
    const auto lockEachTime = [&] {
        for (int i = 0; i < kRecords; ++i) VornMutexLock lock(mutex);
    };
    EXPECT_TRUE(TestSupport::mostSucceed([&] {
        return 2 * TestSupport::timeOf(leaveOut) < TestSupport::timeOf(lockEachTime);
    }));
    EXPECT_EQ(records(), Records{});
}

}  // namespace
