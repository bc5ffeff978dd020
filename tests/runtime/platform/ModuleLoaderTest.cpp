#include "runtime/platform/ModuleLoader.h"

#include "runtime/platform/Environment.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using namespace VornPlatform;

namespace {

std::string pluginPath() {
    return executableFolder() + '/' + moduleFileName("moduleloadertestplugin");
}

TEST(ModuleLoader, FindsTheFunctionsOfALibrary) {
    ModuleLoader loader;
    std::string error = "unchanged";
    ASSERT_TRUE(loader.open(pluginPath(), error)) << error;
    EXPECT_EQ(error, "unchanged");
    EXPECT_TRUE(loader.isOpen());
    auto* const add = loader.function<int(int, int)>("pluginAdd");
    ASSERT_NE(add, nullptr);
    EXPECT_EQ(add(40, 2), 42);
    EXPECT_EQ(loader.symbol("pluginSubtract"), nullptr);
}

TEST(ModuleLoader, OpensRelativePaths) {
    const TestSupport::WorkingDirectory inFolder(executableFolder());
    ModuleLoader loader;
    std::string error;
    EXPECT_TRUE(loader.open("./" + moduleFileName("moduleloadertestplugin"), error)) << error;
}

TEST(ModuleLoader, SaysWhatIsWrong) {
    const TestSupport::TemporaryDirectory directory;
    const std::string noLibrary = directory.file(moduleFileName("text"));
    TestSupport::writeFile(noLibrary, "this is no library");
    for (const std::string& path : {directory.file(moduleFileName("missing")), noLibrary}) {
        ModuleLoader loader;
        std::string error;
        EXPECT_FALSE(loader.open(path, error));
        EXPECT_FALSE(loader.isOpen());
        EXPECT_NE(error.find(path), std::string::npos) << error;
        EXPECT_EQ(loader.symbol("pluginAdd"), nullptr);
    }
}

TEST(ModuleLoader, RefusesAnEmptyName) {
    ModuleLoader loader;
    std::string error;
    EXPECT_FALSE(loader.open("", error));
    EXPECT_NE(error, "");
}

TEST(ModuleLoader, UnloadsWhenClosed) {
    const TestSupport::TemporaryDirectory directory;
    const std::string goodbye = directory.file("goodbye");
    ModuleLoader loader;
    std::string error;
    ASSERT_TRUE(loader.open(pluginPath(), error)) << error;
    loader.function<void(const char*)>("pluginSayGoodbyeTo")(goodbye.c_str());
    EXPECT_FALSE(TestSupport::exists(goodbye));
    loader.close();
    EXPECT_TRUE(TestSupport::exists(goodbye));
    EXPECT_EQ(loader.symbol("pluginAdd"), nullptr);
    loader.close();
}

TEST(ModuleLoader, KeepsTheLibraryWhenAsked) {
    // A library of its own, as it stays to the end and other tests look at unloading.
    static const TestSupport::TemporaryDirectory directory;
    const std::string path = directory.file(moduleFileName("kept"));
    std::filesystem::copy_file(TestSupport::toPath(pluginPath()), TestSupport::toPath(path));
    std::string error;
    int (*add)(int, int) = nullptr;
    {
        ModuleLoader loader;
        ASSERT_TRUE(loader.open(path, error)) << error;
        add = loader.function<int(int, int)>("pluginAdd");
        loader.keep();
        EXPECT_FALSE(loader.isOpen());
    }
    EXPECT_EQ(add(1, 2), 3);
}

TEST(ModuleLoader, FailedOpenClosesWhatWasOpen) {
    ModuleLoader loader;
    std::string error;
    ASSERT_TRUE(loader.open(pluginPath(), error)) << error;
    EXPECT_FALSE(loader.open(pluginPath() + ".missing", error));
    EXPECT_FALSE(loader.isOpen());
}

}  // namespace
