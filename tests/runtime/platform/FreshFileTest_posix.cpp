#include "runtime/platform/FreshFile.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

using namespace VornPlatform;

namespace {

// Files of this process may have so many bytes for a scope, as on a full disk.
class SmallFiles {
public:
    explicit SmallFiles(rlim_t bytes) {
        before_ = ::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &limit_);
        const rlimit small{bytes, limit_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &small);
    }
    ~SmallFiles() {
        ::setrlimit(RLIMIT_FSIZE, &limit_);
        ::signal(SIGXFSZ, before_);
    }

private:
    rlimit limit_{};
    void (*before_)(int);
};

TEST(FreshFile, BelongsToItsOwnerAlone) {
    TestSupport::TemporaryDirectory directory;
    FreshFile fresh;
    ASSERT_FALSE(fresh.create(directory.file("a")));
    struct stat status {};
    ASSERT_EQ(::stat(directory.file("a").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

// Links, pipes and files with rights for others, made by somebody who knew the
// name.
TEST(FreshFile, SharesNothingWithWhatWasThere) {
    TestSupport::TemporaryDirectory directory;
    const std::string target = directory.file("target");
    const std::string a = directory.file("a");
    TestSupport::writeFile(target, "precious");
    const auto prepared = [&](int way) {
        ::unlink(a.c_str());
        if (way == 0) return ::symlink(target.c_str(), a.c_str());
        if (way == 1) return ::link(target.c_str(), a.c_str());
        if (way == 2) return ::mkfifo(a.c_str(), 0666);
        TestSupport::writeFile(a, "open to all");
        return ::chmod(a.c_str(), 0666);
    };
    for (int way = 0; way < 4; ++way) {
        ASSERT_EQ(prepared(way), 0) << way;
        FreshFile fresh;
        ASSERT_FALSE(fresh.create(a)) << way;
        ASSERT_FALSE(fresh.write("new"));
        ASSERT_FALSE(fresh.close());
        EXPECT_EQ(TestSupport::readFile(a), "new") << way;
        EXPECT_EQ(TestSupport::readFile(target), "precious") << way;
        struct stat status {};
        ASSERT_EQ(::lstat(a.c_str(), &status), 0);
        EXPECT_TRUE(S_ISREG(status.st_mode)) << way;
        EXPECT_EQ(status.st_mode & 0777, 0600u) << way;
        EXPECT_EQ(status.st_nlink, 1u) << way;
    }
}

// A second name cannot lead to another file system, a copy can.
TEST(ReplaceFileByCopy, KeepsThePreviousOneWhereThereAreNoSecondNames) {
    TestSupport::TemporaryDirectory directory;
    const std::string content(200'000, 'o');
    const std::string previous = "/dev/shm/FreshFileTest." + std::to_string(::getpid());
    for (int round = 0; round < 2; ++round) {
        TestSupport::writeFile(directory.file("new"), "new");
        TestSupport::writeFile(directory.file("current"), content);
        EXPECT_FALSE(replaceFile(directory.file("new"), directory.file("current"), previous));
        EXPECT_EQ(TestSupport::readFile(directory.file("current")), "new");
        EXPECT_EQ(TestSupport::readFile(previous), content);
        EXPECT_FALSE(TestSupport::exists(directory.file("new")));
    }
    // Nothing to keep: what was kept before goes.
    ::unlink(directory.file("current").c_str());
    TestSupport::writeFile(directory.file("new"), "new");
    EXPECT_FALSE(replaceFile(directory.file("new"), directory.file("current"), previous));
    EXPECT_FALSE(TestSupport::exists(previous));
    // Half a copy is none.
    TestSupport::writeFile(directory.file("new"), "newer");
    TestSupport::writeFile(directory.file("current"), content);
    {
        const SmallFiles limit(100'000);
        EXPECT_FALSE(replaceFile(directory.file("new"), directory.file("current"), previous));
    }
    EXPECT_EQ(TestSupport::readFile(directory.file("current")), "newer");
    EXPECT_FALSE(TestSupport::exists(previous));
}

TEST(FreshFile, ReportsAFullDisk) {
    TestSupport::TemporaryDirectory directory;
    FreshFile fresh;
    ASSERT_FALSE(fresh.create(directory.file("a")));
    const SmallFiles limit(1000);
    EXPECT_FALSE(fresh.write(std::string(900, 'x')));
    EXPECT_EQ(fresh.write(std::string(900, 'x')).condition(), OsCondition::NoSpace);
}

TEST(FreshFile, IsNotInherited) {
    TestSupport::TemporaryDirectory directory;
    FreshFile fresh;
    const int next = ::dup(STDERR_FILENO);
    ::close(next);
    ASSERT_FALSE(fresh.create(directory.file("a")));
    EXPECT_NE(::fcntl(next, F_GETFD) & FD_CLOEXEC, 0);
}

}  // namespace
