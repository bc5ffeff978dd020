#include "runtime/platform/AppendFile.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

using namespace VornPlatform;

namespace {

TEST(AppendFilePosix, TellsThatTheDiskIsFull) {
    AppendFile file;
    ASSERT_FALSE(file.open("/dev/full"));
    std::size_t written = 9;
    EXPECT_EQ(file.write("text", written).condition(), OsCondition::NoSpace);
    EXPECT_EQ(written, 0u);
}

TEST(AppendFilePosix, HasNoSizeUnlessItIsARegularFile) {
    AppendFile file;
    ASSERT_FALSE(file.open("/dev/null"));
    EXPECT_FALSE(file.size().has_value());
}

TEST(AppendFilePosix, NeverWaitsForTheReaderOfAPipe) {
    const TestSupport::TemporaryDirectory directory;
    const std::string path = directory.file("pipe");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    AppendFile file;
    EXPECT_TRUE(file.open(path));  // nobody reads

    const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    ASSERT_FALSE(file.open(path));
    const std::string block(4096, 'x');
    OsError error;
    for (int i = 0; i < 10000 && !error; ++i) {
        std::size_t written = 0;
        error = file.write(block, written);
    }
    EXPECT_EQ(error.condition(), OsCondition::WouldBlock);
    ::close(reader);
}

TEST(AppendFilePosix, IsReadableForOwnerAndGroupOnly) {
    const TestSupport::TemporaryDirectory directory;
    const std::string path = directory.file("log");
    AppendFile file;
    ASSERT_FALSE(file.open(path));
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0137u, 0u);
    EXPECT_EQ(status.st_mode & 0600u, 0600u);
}

}  // namespace
