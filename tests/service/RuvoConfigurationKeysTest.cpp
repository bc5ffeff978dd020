#include "service/RuvoConfigurationKeys.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace RuvoService {
namespace {

std::string complain(const std::string& key, const std::string& value,
                     const RuvoDirectories& directories = {}) {
    return complainAboutValue(*findConfigurationKey(key), value, directories);
}

TEST(RuvoConfigurationKeys, KnowsEachKeyOnce) {
    std::set<std::string_view> seen;
    for (const auto& key : ruvoConfigurationKeys()) {
        EXPECT_TRUE(seen.insert(key.key).second) << key.key;
    }
}

TEST(RuvoConfigurationKeys, HasDefaultsThatItWouldNotComplainAbout) {
    const auto here = RuvoDirectories::of("");
    for (const auto& key : ruvoConfigurationKeys()) {
        if (key.defaultValue.empty()) continue;
        EXPECT_EQ(complainAboutValue(key, std::string(key.defaultValue), here), "") << key.key;
    }
}

TEST(RuvoConfigurationKeys, FindsByTheWholeKeyAndCase) {
    ASSERT_NE(findConfigurationKey("logging.level"), nullptr);
    EXPECT_EQ(findConfigurationKey("logging.level")->key, "logging.level");
    EXPECT_EQ(findConfigurationKey("logging.Level"), nullptr);
    EXPECT_EQ(findConfigurationKey("logging.levels"), nullptr);
    EXPECT_EQ(findConfigurationKey("logging"), nullptr);
    EXPECT_EQ(findConfigurationKey(""), nullptr);
}

TEST(RuvoConfigurationKeys, FindsServicesOfTheGatewayByTheirBeginning) {
    const auto* const service = findConfigurationKey("ruvod.gateway.services.https-default");
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->key, "ruvod.gateway.services.*");
    EXPECT_EQ(findConfigurationKey("ruvod.gateway.services")->key, "ruvod.gateway.services");
    EXPECT_EQ(findConfigurationKey("ruvod.gateway.services."), nullptr);
    EXPECT_EQ(findConfigurationKey("ruvod.gateway.servicesx"), nullptr);
}

TEST(RuvoConfigurationKeys, ParsesNothingButAWholeDecimalNumber) {
    std::uint64_t number = 77;
    EXPECT_TRUE(parseConfigurationNumber("0", number));
    EXPECT_EQ(number, 0u);
    EXPECT_TRUE(parseConfigurationNumber("18446744073709551615", number));
    EXPECT_EQ(number, UINT64_MAX);
    for (const char* bad : {"", " 1", "1 ", "-1", "+1", "0x10", "1.5", "18446744073709551616"}) {
        EXPECT_FALSE(parseConfigurationNumber(bad, number)) << bad;
    }
}

TEST(RuvoConfigurationKeys, ComplainsAboutNumbersOutOfRange) {
    EXPECT_EQ(complain("logging.level", "9"), "");
    EXPECT_EQ(complain("logging.level", "10"), "\"10\" is not a number from 0 to 9");
    EXPECT_EQ(complain("logging.level", "-1"), "\"-1\" is not a number from 0 to 9");
    EXPECT_EQ(complain("logging.level", ""), "\"\" is not a number from 0 to 9");
    EXPECT_EQ(complain("ruvod.tcp-server.port", "65535"), "");
    EXPECT_NE(complain("ruvod.tcp-server.port", "65536"), "");
    EXPECT_EQ(complain("ruvod.limits.clients", "1"), "");
    EXPECT_NE(complain("ruvod.limits.clients", "0"), "");
}

TEST(RuvoConfigurationKeys, ComplainsAboutWordsThatAreNoneOfTheChoices) {
    EXPECT_EQ(complain("ruvod.local-access", "owner"), "");
    EXPECT_EQ(complain("ruvod.local-access", "any"), "");
    EXPECT_EQ(complain("ruvod.local-access", "Any"), "\"Any\" is not one of owner|any");
    EXPECT_NE(complain("ruvod.local-access", "owner|any"), "");
    EXPECT_NE(complain("ruvod.local-access", ""), "");
    EXPECT_NE(complain("ruvod.gateway", "On"), "");
}

TEST(RuvoConfigurationKeys, ComplainsAboutDirectoriesThatAreMissing) {
    const TestSupport::TemporaryDirectory directory;
    const RuvoDirectories directories{.start = directory.text(), .operating = directory.text()};
    TestSupport::writeFile(directory.file("file"), "");
    EXPECT_EQ(complain("ruvod.operating-directory", directory.text(), directories), "");
    EXPECT_EQ(complain("ruvod.operating-directory", ".", directories), "");
    EXPECT_NE(complain("ruvod.operating-directory", "nowhere", directories), "");
    EXPECT_NE(complain("ruvod.operating-directory", "file", directories), "");
    EXPECT_EQ(complain("logging.file", "new.log", directories), "");
    EXPECT_NE(complain("logging.file", "nowhere/new.log", directories), "");
    EXPECT_EQ(complain("logging.file", directory.file("new.log"), directories), "");
    EXPECT_EQ(complain("logging.file", "", directories), "the value is empty");
}

TEST(RuvoConfigurationKeys, CountsARelativeOperatingDirectoryFromHere) {
    const TestSupport::TemporaryDirectory directory;
    const TestSupport::WorkingDirectory there(directory.text());
    const auto directories = RuvoDirectories::of("sub");
    const auto here = std::filesystem::current_path();
    EXPECT_EQ(directories.start, TestSupport::toText(here));
    EXPECT_EQ(directories.operating, TestSupport::toText(here / "sub"));
    EXPECT_EQ(RuvoDirectories::of(directory.text()).operating, directory.text());
}

}  // namespace
}  // namespace RuvoService
