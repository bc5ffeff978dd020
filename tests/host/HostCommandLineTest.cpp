#include "host/HostCommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace RuvoHost {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::PrintToString;
using Arguments = std::vector<std::string>;

HostCommandLine parse(const Arguments& arguments) {
    return parseHostCommandLine(arguments, "1.2.3");
}

TEST(HostCommandLine, RunsUnlessItIsToldOtherwise) {
    for (const Arguments& arguments :
         {Arguments{"--properties", "file"}, Arguments{"run", "--properties", "file"},
          Arguments{"--properties", "file", "run"}, Arguments{"-p", "file"},
          Arguments{"run", "--properties=file"}}) {
        const auto line = parse(arguments);
        EXPECT_EQ(line.action, HostAction::Run) << PrintToString(arguments);
        EXPECT_EQ(line.properties, "file") << PrintToString(arguments);
    }
}

TEST(HostCommandLine, KnowsItsCommands) {
    EXPECT_EQ(parse({"check", "--properties", "f"}).action, HostAction::Check);
    EXPECT_EQ(parse({"--properties", "f", "check"}).properties, "f");
    EXPECT_EQ(parse({"install"}).action, HostAction::Install);
    EXPECT_EQ(parse({"remove"}).action, HostAction::Remove);
}

TEST(HostCommandLine, TakesNamesOfFilesAsTheyAre) {
    for (const std::string name : {"a b", "\xc3\xa4.properties", "C:\\x\\y", "run", "a=b"}) {
        EXPECT_EQ(parse({"run", "--properties", name}).properties, name);
    }
}

TEST(HostCommandLine, EndsWithTheStatusOfBadUsage) {
    for (const Arguments& arguments :
         {Arguments{}, Arguments{"run"}, Arguments{"check"}, Arguments{"--properties"},
          Arguments{"--properties", ""}, Arguments{"start"}, Arguments{"--unknown"},
          Arguments{"run", "check", "--properties", "f"}, Arguments{"--properties", "f", "more"},
          Arguments{"RUN", "--properties", "f"}}) {
        const auto line = parse(arguments);
        EXPECT_EQ(line.action, HostAction::Exit) << PrintToString(arguments);
        EXPECT_EQ(line.exitStatus, kBadUsage) << PrintToString(arguments);
        EXPECT_THAT(line.output, IsEmpty()) << PrintToString(arguments);
        EXPECT_FALSE(line.errors.empty()) << PrintToString(arguments);
    }
}

TEST(HostCommandLine, NamesWhatIsMissing) {
    EXPECT_THAT(parse({"run"}).errors, HasSubstr("--properties FILE"));
}

TEST(HostCommandLine, ShowsHelpAndVersionAndEndsWell) {
    auto line = parse({"--help"});
    EXPECT_EQ(line.action, HostAction::Exit);
    EXPECT_EQ(line.exitStatus, kSuccess);
    EXPECT_THAT(line.errors, IsEmpty());
    for (const char* word : {"run", "check", "install", "remove", "--properties", "Examples:",
                             "Exit status", "SIGHUP"}) {
        EXPECT_THAT(line.output, HasSubstr(word));
    }
    line = parse({"--version"});
    EXPECT_EQ(line.exitStatus, kSuccess);
    EXPECT_EQ(line.output, "ruvohost 1.2.3\n");
}

}  // namespace
}  // namespace RuvoHost
