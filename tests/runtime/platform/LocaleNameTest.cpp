#include "runtime/platform/LocaleName.h"

#include "runtime/platform/Environment.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>

using namespace VornPlatform;

namespace {

class LocaleNameTest : public testing::Test {
protected:
    LocaleNameTest() {
        for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
            before_[name] = getEnv(name);
            setEnv(name, std::nullopt);
        }
    }
    ~LocaleNameTest() override {
        for (const auto& [name, value] : before_) setEnv(name, value);
    }

    std::map<std::string, std::optional<std::string>> before_;
};

TEST_F(LocaleNameTest, TakesTheVariablesInTheirOrder) {
    setEnv("LANG", "de_DE.UTF-8");
    EXPECT_EQ(localeName(true), "de_DE.UTF-8");
    setEnv("LC_MESSAGES", "fr_FR");
    EXPECT_EQ(localeName(true), "fr_FR");
    setEnv("LC_ALL", "ja");
    EXPECT_EQ(localeName(true), "ja");
    EXPECT_EQ(localeName(false), "ja");
}

TEST_F(LocaleNameTest, PassesOverEmptyVariables) {
    setEnv("LC_ALL", "");
    setEnv("LANG", "sv");
    EXPECT_EQ(localeName(true), "sv");
}

}  // namespace
