// What others may do to the store, and what a full disk does.

#include "scheduler/RuvoTSStore.h"

#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <string>

using namespace RuvoService;
using TestSupport::exists;
using TestSupport::kNoon;
using TestSupport::LogCapture;
using TestSupport::OpenScheduler;
using TestSupport::readFile;

namespace {

const std::string kLine = "78563412 exec a%00 2024 06 15 13 00 00 3 prog%00 %00 %00 %00\n";

class RuvoTSStoreTrustTest : public testing::Test {
protected:
    // The store is refused, said once, and left as it is.
    void expectRefused(const std::string& reason) {
        const std::string before = readFile(folder_.store());
        const LogCapture log(2);
        OpenScheduler scheduler;
        EXPECT_EQ(RuvoTSTaskSet::getInstance().size(), 0u);
        EXPECT_GE(OpenScheduler::schedule("mine", "p", "", kNoon + 60, 0), 0);
        EXPECT_GE(OpenScheduler::schedule("too", "p", "", kNoon + 60, 0), 0);
        ASSERT_EQ(log.texts(2).size(), 1u);
        EXPECT_TRUE(log.texts(2)[0].starts_with("RuvoTSEngine::recover: "));
        EXPECT_NE(log.texts(2)[0].find(": " + reason + ";"), std::string::npos);
        EXPECT_EQ(readFile(folder_.store()), before);
        EXPECT_FALSE(exists(folder_.previous()));
    }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
};

TEST_F(RuvoTSStoreTrustTest, RefusesAStoreThatEverybodyMayWrite) {
    TestSupport::writeFile(folder_.store(), kLine);
    ASSERT_EQ(::chmod(folder_.store().c_str(), 0666), 0);
    expectRefused("everybody may write to it");
    ASSERT_EQ(::chmod(folder_.store().c_str(), 0644), 0);
    OpenScheduler scheduler;
    EXPECT_EQ(RuvoTSTaskSet::getInstance().size(), 1u);
}

// Only root can make such a file; others try with one that is theirs.
TEST_F(RuvoTSStoreTrustTest, RefusesAStoreOfAnotherUser) {
    TestSupport::writeFile(folder_.store(), kLine);
    if (::chown(folder_.store().c_str(), 65534, static_cast<gid_t>(-1)) == 0) {
        expectRefused("it belongs to another user");
        ASSERT_EQ(::chown(folder_.store().c_str(), ::geteuid(), static_cast<gid_t>(-1)), 0);
    }
    OpenScheduler scheduler;
    EXPECT_EQ(RuvoTSTaskSet::getInstance().size(), 1u);
}

// A name that somebody has prepared leads nowhere.
TEST_F(RuvoTSStoreTrustTest, WritesThroughNoLink) {
    TestSupport::writeFile(folder_.file("target"), "precious");
    ASSERT_EQ(::symlink(folder_.file("target").c_str(), folder_.fresh().c_str()), 0);
    const OpenScheduler scheduler;
    EXPECT_GE(OpenScheduler::schedule("a", "p", "", kNoon + 60, 0), 0);
    EXPECT_EQ(readFile(folder_.file("target")), "precious");
    struct stat status {};
    ASSERT_EQ(::lstat(folder_.store().c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

// ---- a full disk -----------------------------------------------------------------

class SmallFiles {
public:
    explicit SmallFiles(rlim_t bytes) {
        before_ = std::signal(SIGXFSZ, [](int) {});  // as the daemon has it
        ::getrlimit(RLIMIT_FSIZE, &limit_);
        const rlimit small{bytes, limit_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &small);
    }
    ~SmallFiles() {
        ::setrlimit(RLIMIT_FSIZE, &limit_);
        std::signal(SIGXFSZ, before_);
    }

private:
    rlimit limit_{};
    void (*before_)(int);
};

TEST(RuvoTSStoreOnAFullDisk, KeepsTheOldStoreAndItsPrevious) {
    const TestSupport::StoreFolder folder;
    RuvoTSStore store;
    const auto write = [&](const std::string& line, int times) {
        EXPECT_TRUE(store.begin());
        for (int i = 0; i < times; ++i) {
            store.buffer() += line;
            store.settle();
        }
        return store.finish();
    };
    ASSERT_TRUE(write("older\n", 1));
    ASSERT_TRUE(write("old\n", 1));
    const LogCapture log(2);
    {
        const SmallFiles limit(4'000'000);
        for (int attempt = 0; attempt < 3; ++attempt) {
            EXPECT_FALSE(write(std::string(99'999, 'n') + '\n', 80));
            EXPECT_EQ(readFile(folder.store()), "old\n");
            EXPECT_EQ(readFile(folder.previous()), "older\n");
            EXPECT_FALSE(exists(folder.fresh()));
        }
    }
    ASSERT_EQ(log.texts(2).size(), 1u);
    EXPECT_TRUE(log.texts(2)[0].starts_with("RuvoTSTaskSet::recordTaskSet: cannot write "));
    EXPECT_TRUE(log.texts(2)[0].ends_with("; the old store stays"));
    EXPECT_TRUE(write("new\n", 1));
    EXPECT_EQ(readFile(folder.store()), "new\n");
    EXPECT_EQ(readFile(folder.previous()), "old\n");
    EXPECT_EQ(log.texts(2).size(), 2u);
}

}  // namespace
