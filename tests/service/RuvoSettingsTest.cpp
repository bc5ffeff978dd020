#include "service/RuvoSettings.h"

#include "runtime/net/VornLocalAccess.h"
#include "runtime/net/VornNetLimits.h"
#include "runtime/support/VornLogging.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace RuvoService {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using VornNet::VornNetLimits;
using VornSupport::VornLogging;

class RuvoSettingsTest : public ::testing::Test {
protected:
    ~RuvoSettingsTest() override {
        applyNetSettings(RuvoProperties());
        VornLogging::setAccessAllowed(true);
    }

    RuvoProperties properties_;
};

TEST_F(RuvoSettingsTest, ReadsTheDigitsThatATextBeginsWith) {
    EXPECT_EQ(leadingNumber("0"), 0u);
    EXPECT_EQ(leadingNumber("7 of 9"), 7u);
    EXPECT_EQ(leadingNumber("12"), 12u);
    EXPECT_EQ(leadingNumber(""), 0u);
    EXPECT_EQ(leadingNumber("nine"), 0u);
    EXPECT_EQ(leadingNumber("-"), 0u);
    EXPECT_EQ(leadingNumber("-0"), 0u);
    EXPECT_EQ(leadingNumber("-1"), UINT64_MAX);
    EXPECT_EQ(leadingNumber("-18446744073709551615"), UINT64_MAX);
    EXPECT_EQ(leadingNumber("99999999999999999999"), UINT64_MAX);
}

TEST_F(RuvoSettingsTest, TakesALogLevelFromZeroToNineOnly) {
    const TestSupport::LogCapture log(4);
    auto& logging = VornLogging::getInstance();
    for (const char* ignored : {"10", "-1", "99999999999999999999"}) {
        applyLogLevel(ignored);
        EXPECT_EQ(logging.getLogLevel(), 4) << ignored;
    }
    applyLogLevel("9");
    EXPECT_EQ(logging.getLogLevel(), 9);
    applyLogLevel("0");
    EXPECT_EQ(logging.getLogLevel(), 0);
    applyLogLevel("6th");
    EXPECT_EQ(logging.getLogLevel(), 6);
    applyLogLevel("none");
    EXPECT_EQ(logging.getLogLevel(), 0);
}

TEST_F(RuvoSettingsTest, TakesALogTarget) {
    const TestSupport::LogCapture log;
    auto& logging = VornLogging::getInstance();
    applyLogTarget("3");
    EXPECT_EQ(logging.getTarget(), 3);
    applyLogTarget("99999999999");
    EXPECT_EQ(logging.getTarget(), 0);
    applyLogTarget("2");
    applyLogTarget("-4");
    EXPECT_EQ(logging.getTarget(), 0);
}

TEST_F(RuvoSettingsTest, LeavesTheLogAloneWhereLoggingIsNotAllowed) {
    const TestSupport::LogCapture log(4);
    const int target = VornLogging::getInstance().getTarget();
    VornLogging::setAccessAllowed(false);
    applyLogLevel("7");
    applyLogTarget("0");
    EXPECT_EQ(VornLogging::getInstance().getLogLevel(), 4);
    EXPECT_EQ(VornLogging::getInstance().getTarget(), target);
}

TEST_F(RuvoSettingsTest, CountsTheLogFileFromTheOperatingDirectory) {
    const TestSupport::TemporaryDirectory operating;
    {
        const TestSupport::LogCapture restoring(1);
        properties_.setProperty("logging.file", "own.log");
        applyLogFile(properties_, {.start = "/", .operating = operating.text()});
        applyLogTarget("2");
        VORN_LOG(0, "here it is");
        VornLogging::getInstance().flush();
        VornLogging::getInstance().setTarget(0);
    }
    EXPECT_NE(TestSupport::readFile(operating.file("own.log")).find("here it is"),
              std::string::npos);
}

TEST_F(RuvoSettingsTest, WritesToTheDefaultFileWhereTheNameIsEmpty) {
    const TestSupport::TemporaryDirectory operating;
    {
        const TestSupport::LogCapture restoring(1);
        properties_.setProperty("logging.file", "");
        applyLogFile(properties_, {.start = "/", .operating = operating.text()});
        applyLogTarget("2");
        VORN_LOG(0, "here it is");
        VornLogging::getInstance().flush();
        VornLogging::getInstance().setTarget(0);
    }
    EXPECT_TRUE(TestSupport::exists(operating.file("ruvod.log")));
}

TEST_F(RuvoSettingsTest, TurnsTheLogOverAtItsSize) {
    const TestSupport::TemporaryDirectory operating;
    {
        const TestSupport::LogCapture restoring(1);
        properties_.setProperty("logging.max-bytes", "200");
        properties_.setProperty("logging.files", "2");
        applyLogFile(properties_, {.start = "/", .operating = operating.text()});
        applyLogTarget("2");
        for (int i = 0; i < 20; ++i) VORN_LOG(0, "a record of some length that fills the file");
        VornLogging::getInstance().setTarget(0);
    }
    EXPECT_TRUE(TestSupport::exists(operating.file("ruvod.log.2")));
    EXPECT_FALSE(TestSupport::exists(operating.file("ruvod.log.3")));
}

TEST_F(RuvoSettingsTest, SetsTheLimitsAndGivesMissingOnesTheirDefaults) {
    auto& limits = VornNetLimits::getInstance();
    properties_.setProperty("ruvod.limits.clients", "7");
    properties_.setProperty("ruvod.limits.string-bytes", "100");
    properties_.setProperty("ruvod.limits.block-bytes", "200");
    properties_.setProperty("ruvod.limits.delivery-ms", "300");
    applyNetSettings(properties_);
    EXPECT_EQ(limits.clients, 7);
    EXPECT_EQ(limits.stringBytes, 100u);
    EXPECT_EQ(limits.blockBytes, 200u);
    EXPECT_EQ(limits.deliveryMs, 300);

    applyNetSettings(RuvoProperties());
    EXPECT_EQ(limits.clients, 4096);
    EXPECT_EQ(limits.stringBytes, 1048576u);
    EXPECT_EQ(limits.blockBytes, 67108864u);
    EXPECT_EQ(limits.deliveryMs, 2000);
}

TEST_F(RuvoSettingsTest, KeepsTheDefaultOfALimitThatCannotBeUsed) {
    for (const char* bad : {"0", "-5", "many", "", "10x", "1000001"}) {
        VornNetLimits::getInstance().clients = 1;
        properties_.setProperty("ruvod.limits.clients", bad);
        applyNetSettings(properties_);
        EXPECT_EQ(VornNetLimits::getInstance().clients, 4096) << bad;
    }
}

TEST_F(RuvoSettingsTest, LogsOneLineForEachBadValueAndNoneForGoodAndUnknownKeys) {
    const TestSupport::LogCapture log;
    properties_.setProperty("ruvod.limits.clients", "0");
    properties_.setProperty("ruvod.local-access", "anybody");
    properties_.setProperty("ruvod.limits.delivery-ms", "100");
    properties_.setProperty("some.plugin.key", "?");
    logBadValues(properties_, RuvoDirectories::of(""));
    EXPECT_THAT(
        log.texts(2),
        ElementsAre("RuvoService::readSettings: ruvod.limits.clients: \"0\" is not a number from "
                    "1 to 1000000",
                    "RuvoService::readSettings: ruvod.local-access: \"anybody\" is not one of "
                    "owner|any"));
    EXPECT_EQ(log.records().size(), 2u);
}

}  // namespace
}  // namespace RuvoService
