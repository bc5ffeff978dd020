#include "runtime/monitor/EventSpool.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>

using TestSupport::LogCapture;
using TestSupport::TemporaryDirectory;
using VornMonitor::EventSpool;
using VornMonitor::VornEventData;

namespace {

int countEvents(const std::string& file) {
    int count = 0;
    EventSpool::process(file, [&count](const VornEventData&) { ++count; });
    return count;
}

// Nobody writes to these pipes: whoever opens one waits for ever.

TEST(EventSpool, LeavesANamedPipeAlone) {
    const TemporaryDirectory directory;
    const std::string file = directory.file("trapinfo.txt");
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    const LogCapture log(2);
    EXPECT_EQ(countEvents(file), 0);
    EXPECT_TRUE(TestSupport::exists(file));
    EXPECT_FALSE(TestSupport::exists(file + ".taken"));
    EXPECT_EQ(log.texts(2).size(), 1u);
}

TEST(EventSpool, ReadsNoNamedPipeInThePlaceOfTheTakenFile) {
    const TemporaryDirectory directory;
    const std::string file = directory.file("trapinfo.txt");
    ASSERT_EQ(::mkfifo((file + ".taken").c_str(), 0600), 0);
    TestSupport::writeFile(file, "one\n");
    const LogCapture log(2);
    EXPECT_EQ(countEvents(file), 0);
    EXPECT_TRUE(TestSupport::exists(file));
    EXPECT_EQ(log.texts(2).size(), 1u);
    ASSERT_EQ(::remove((file + ".taken").c_str()), 0);
    EXPECT_EQ(countEvents(file), 1);
}

}  // namespace
