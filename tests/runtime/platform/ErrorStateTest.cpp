#include "runtime/platform/ErrorState.h"

#include "runtime/platform/AppendFile.h"
#include "runtime/platform/OsError.h"

#include <gtest/gtest.h>

#include <cerrno>

using namespace VornPlatform;

namespace {

TEST(ErrorStateKeeper, GivesBackTheLastErrors) {
    removeFile("");
    const int systemError = OsError::last().code();
    ASSERT_NE(systemError, 0);
    errno = ERANGE;
    const int expected = OsError::last().code() == ERANGE ? ERANGE : systemError;
    {
        const ErrorStateKeeper keeper;
        AppendFile().open("missing folder/file");
        errno = EDOM;
    }
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(OsError::last().code(), expected);
}

}  // namespace
