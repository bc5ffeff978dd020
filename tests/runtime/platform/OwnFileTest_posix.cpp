#include "runtime/platform/OwnFile.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>

using namespace VornPlatform;
using Trust = OwnFile::Trust;

namespace {

Trust trustIn(const std::string& path) {
    OwnFile file;
    Trust trust = Trust::NoFile;
    EXPECT_FALSE(file.open(path, trust));
    EXPECT_EQ(file.isOpen(), trust == Trust::Good);
    return trust;
}

TEST(OwnFile, TrustsNoFileThatEverybodyMayWrite) {
    TestSupport::TemporaryDirectory directory;
    const std::string file = directory.file("a");
    TestSupport::writeFile(file, "x");
    for (const mode_t mode : {0600u, 0644u, 0640u, 0400u}) {
        ASSERT_EQ(::chmod(file.c_str(), mode), 0);
        EXPECT_EQ(trustIn(file), Trust::Good) << mode;
    }
    for (const mode_t mode : {0666u, 0602u, 0646u, 0777u}) {
        ASSERT_EQ(::chmod(file.c_str(), mode), 0);
        EXPECT_EQ(trustIn(file), Trust::Writable) << mode;
    }
}

// Files can be given away by root only. Everybody else has some of root's: those
// are trusted.
TEST(OwnFile, TrustsNoFileOfAnotherUser) {
    TestSupport::TemporaryDirectory directory;
    const std::string file = directory.file("a");
    TestSupport::writeFile(file, "x");
    if (::chown(file.c_str(), 65534, static_cast<gid_t>(-1)) == 0) {
        EXPECT_EQ(trustIn(file), Trust::Foreign);
        ASSERT_EQ(::chown(file.c_str(), ::geteuid(), static_cast<gid_t>(-1)), 0);
    }
    EXPECT_EQ(trustIn(file), Trust::Good);
    EXPECT_EQ(trustIn("/etc/passwd"), Trust::Good);
}

// What it leads to may come back, a volume that is not mounted, say.
TEST(OwnFile, TakesALinkToNothingForNoFile) {
    TestSupport::TemporaryDirectory directory;
    const std::string link = directory.file("a");
    ASSERT_EQ(::symlink(directory.file("b").c_str(), link.c_str()), 0);
    EXPECT_EQ(trustIn(link), Trust::NoFile);
    TestSupport::writeFile(directory.file("b"), "x");
    EXPECT_EQ(trustIn(link), Trust::Good);
    OwnFile file;
    Trust trust{};
    EXPECT_EQ(file.open(directory.file("c"), trust).condition(), OsCondition::NotFound);
}

TEST(OwnFile, DoesNotWaitForTheWriterOfAPipe) {
    TestSupport::TemporaryDirectory directory;
    ASSERT_EQ(::mkfifo(directory.file("a").c_str(), 0600), 0);
    EXPECT_EQ(trustIn(directory.file("a")), Trust::NoFile);
    EXPECT_EQ(trustIn("/dev/null"), Trust::NoFile);
}

}  // namespace
