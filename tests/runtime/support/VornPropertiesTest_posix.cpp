#include "runtime/support/VornException.h"
#include "runtime/support/VornMessageSet.h"
#include "runtime/support/VornProperties.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>

using namespace VornSupport;

namespace {

std::string makePipe(const TestSupport::TemporaryDirectory& directory, const char* name) {
    const std::string path = directory.file(name);
    EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
    return path;
}

// Nobody writes to these pipes: whoever opens one waits for ever.

TEST(VornProperties, RefusesANamedPipe) {
    const TestSupport::TemporaryDirectory directory;
    const std::string pipe = makePipe(directory, "ruvod.properties");
    const std::string link = directory.file("link.properties");
    ASSERT_EQ(::symlink(pipe.c_str(), link.c_str()), 0);
    for (const std::string& name : {pipe, link}) {
        VornProperties<std::string> properties;
        EXPECT_THROW(properties.loadProperties(name), VornException) << name;
    }
}

TEST(VornProperties, ReadsLinksAndTheEmptyDevice) {
    const TestSupport::TemporaryDirectory directory;
    TestSupport::writeFile(directory.file("file"), "a=1");
    ASSERT_EQ(::symlink("file", directory.file("link").c_str()), 0);
    VornProperties<std::string> properties;
    properties.loadProperties(directory.file("link"));
    EXPECT_EQ(properties.getProperty("a"), "1");
    VornProperties<std::string> none;
    none.loadProperties("/dev/null");
    EXPECT_EQ(none.size(), 0u);
}

TEST(VornMessageSet, PassesOverANamedPipe) {
    const TestSupport::TemporaryDirectory directory;
    const VornLocale locale("de");
    makePipe(directory, "texts.msg");
    EXPECT_THROW(VornMessageSet(directory.file("texts"), locale), VornException);
    TestSupport::writeFile(directory.file("texts_de.msg"), "a=ja\n");
    EXPECT_EQ(VornMessageSet(directory.file("texts"), locale).getString("a"), L"ja");
}

}  // namespace
