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

TEST(FreshFile, RefusesASymbolicLink) {
    TestSupport::TemporaryDirectory directory;
    TestSupport::writeFile(directory.file("target"), "precious");
    ASSERT_EQ(::symlink(directory.file("target").c_str(), directory.file("a").c_str()), 0);
    FreshFile fresh;
    EXPECT_TRUE(fresh.create(directory.file("a")));
    EXPECT_EQ(TestSupport::readFile(directory.file("target")), "precious");
}

TEST(FreshFile, DoesNotWaitForTheReaderOfAPipe) {
    TestSupport::TemporaryDirectory directory;
    ASSERT_EQ(::mkfifo(directory.file("a").c_str(), 0600), 0);
    FreshFile fresh;
    EXPECT_TRUE(fresh.create(directory.file("a")));
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
