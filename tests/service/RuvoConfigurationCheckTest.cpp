#include "service/RuvoConfigurationCheck.h"

#include "tests/support/TestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace RuvoService {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RuvoConfigurationCheckTest : public ::testing::Test {
protected:
    // The complaints about a file with a good operating directory and these lines.
    std::vector<std::string> complaints(const std::string& lines) {
        return complaintsOfFile("ruvod.operating-directory=" + directory_.text() + "\n" + lines);
    }
    std::vector<std::string> complaintsOfFile(const std::string& content) {
        TestSupport::writeFile(name_, content);
        return check(name_);
    }
    // Without the name of the file, which every complaint begins with.
    static std::vector<std::string> check(const std::string& name) {
        std::vector<std::string> found;
        checkConfiguration(name, [&](const std::string& line) {
            EXPECT_EQ(line.find('\n'), std::string::npos);
            EXPECT_TRUE(line.starts_with(name + ":")) << line;
            found.push_back(line.substr(name.size() + 1));
        });
        return found;
    }

    TestSupport::TemporaryDirectory directory_;
    const std::string name_ = directory_.file("test.properties");
};

TEST_F(RuvoConfigurationCheckTest, FindsNothingInAGoodFile) {
    EXPECT_THAT(complaints("# comment\n\n! another\nlogging.level = 5\r\n"
                           "ruvod.tcp-server.port=0\nruvod.gateway.services.mail=host:25\n"),
                IsEmpty());
}

TEST_F(RuvoConfigurationCheckTest, TellsOfAFileThatCannotBeRead) {
    EXPECT_THAT(check(directory_.file("missing")), ElementsAre(" the file cannot be read"));
    EXPECT_THAT(check(directory_.text()), ElementsAre(" the file cannot be read"));
}

TEST_F(RuvoConfigurationCheckTest, TellsOfTheMissingOperatingDirectory) {
    EXPECT_THAT(complaintsOfFile(""),
                ElementsAre(" ruvod.operating-directory: the key is missing"));
}

TEST_F(RuvoConfigurationCheckTest, TellsOfAnEmptyOperatingDirectory) {
    EXPECT_THAT(complaintsOfFile("ruvod.operating-directory=\n"),
                ElementsAre("1: ruvod.operating-directory: the value is empty"));
    EXPECT_THAT(complaintsOfFile("ruvod.operating-directory =  \r\n"),
                ElementsAre("1: ruvod.operating-directory: the value is empty"));
}

TEST_F(RuvoConfigurationCheckTest, TellsOfALogFileThatIsADirectory) {
    EXPECT_THAT(complaints("logging.file=.\n"),
                ElementsAre("2: logging.file: \".\" is a directory"));
}

TEST_F(RuvoConfigurationCheckTest, ShowsTheBeginningOfLongTexts) {
    const std::string text(100000, 'x');
    const std::string shown = std::string(200, 'x') + "...";
    EXPECT_THAT(complaints(text + "\n"),
                ElementsAre("2: there is no key and value in \"" + shown + "\""));
    EXPECT_THAT(complaints(text + "=1\n" + text + "=2\n"),
                ElementsAre("3: " + shown + ": was given before, on line 2",
                            "3: " + shown + ": the key is unknown"));
    EXPECT_THAT(complaints("logging.level=" + text + "\nlogging.file=no/" + text + "\n"),
                ElementsAre("3: logging.file: there is no directory for \"no/" +
                                shown.substr(3) + "\"",
                            "2: logging.level: \"" + shown + "\" is not a number from 0 to 9"));
    EXPECT_THAT(complaints("ruvod.gateway=" + std::string(199, 'x') + "\xc3\xa9y\n"),
                ElementsAre("2: ruvod.gateway: \"" + std::string(199, 'x') +
                            "...\" is not one of on|off"));
}

TEST_F(RuvoConfigurationCheckTest, TellsLineAndKeyOfUnknownKeysAndBadValues) {
    EXPECT_THAT(complaints("ruvod.nonsense=1\nlogging.level=12\n"),
                ElementsAre("3: logging.level: \"12\" is not a number from 0 to 9",
                            "2: ruvod.nonsense: the key is unknown"));
}

TEST_F(RuvoConfigurationCheckTest, TellsOfLinesWithoutKeyOrSeparator) {
    EXPECT_THAT(complaints("logging.level\n=5\n"),
                ElementsAre("2: there is no key and value in \"logging.level\"",
                            "3: there is no key and value in \"=5\""));
}

TEST_F(RuvoConfigurationCheckTest, TellsOfAKeyGivenTwiceAndJudgesTheLaterValue) {
    EXPECT_THAT(complaints("logging.level=77\nlogging.level=5\n"),
                ElementsAre("3: logging.level: was given before, on line 2"));
    EXPECT_THAT(complaints("logging.level=5\nlogging.level=77\n"),
                ElementsAre("3: logging.level: was given before, on line 2",
                            "3: logging.level: \"77\" is not a number from 0 to 9"));
}

TEST_F(RuvoConfigurationCheckTest, LooksForTheLogFromTheOperatingDirectoryWhereverItStands) {
    EXPECT_THAT(complaintsOfFile("logging.file=a.log\nruvod.operating-directory=" +
                                 directory_.text()),
                IsEmpty());
    EXPECT_THAT(complaints("logging.file=none/a.log\n"),
                ElementsAre("2: logging.file: there is no directory for \"none/a.log\""));
}

TEST_F(RuvoConfigurationCheckTest, ChangesNothing) {
    complaints("logging.file=a.log\n");
    EXPECT_FALSE(TestSupport::exists(directory_.file("a.log")));
}

}  // namespace
}  // namespace RuvoService
