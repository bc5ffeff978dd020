// The documentation, the shipped configuration and the list of keys agree.

#include "service/RuvoConfigurationCheck.h"
#include "service/RuvoConfigurationKeys.h"
#include "tests/support/TestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace RuvoService {
namespace {

std::string sourceFile(const std::string& name) {
    const char* const root = std::getenv("RUVO_SOURCE_DIR");
    EXPECT_NE(root, nullptr) << "RUVO_SOURCE_DIR names the root of the sources";
    return TestSupport::readFile(std::string(root == nullptr ? "." : root) + "/" + name);
}

struct Row {
    std::string defaultValue;
    std::string unit;
    std::string effect;
};

std::vector<std::string> cellsOf(const std::string& line) {
    std::vector<std::string> cells;
    std::istringstream row(line.substr(1));
    for (std::string cell; std::getline(row, cell, '|');) {
        const auto first = cell.find_first_not_of(' ');
        const auto last = cell.find_last_not_of(' ');
        cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
    }
    return cells;
}

std::map<std::string, Row> documentedKeys() {
    std::map<std::string, Row> rows;
    std::istringstream text(sourceFile("docs/configuration.md"));
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("| `")) {
            const auto cells = cellsOf(line);
            EXPECT_EQ(cells.size(), 4u) << line;
            if (cells.size() < 4) continue;
            const std::string key = cells[0].substr(1, cells[0].size() - 2);
            EXPECT_FALSE(rows.contains(key)) << key << " is documented twice";
            rows[key] = {cells[1], cells[2], cells[3]};
        }
    }
    return rows;
}

TEST(ConfigurationFiles, EveryKeyIsDocumentedWithItsDefaultAndUnit) {
    const auto rows = documentedKeys();
    for (const auto& key : ruvoConfigurationKeys()) {
        const auto row = rows.find(std::string(key.key));
        ASSERT_NE(row, rows.end()) << key.key << " is not in docs/configuration.md";
        EXPECT_EQ(row->second.defaultValue, key.defaultValue) << key.key;
        EXPECT_EQ(row->second.unit, key.unit) << key.key;
        EXPECT_GT(row->second.effect.size(), 20u) << key.key;
    }
    EXPECT_EQ(rows.size(), ruvoConfigurationKeys().size());
}

TEST(ConfigurationFiles, TheDocumentationNamesNoOtherKeys) {
    const std::string text = sourceFile("docs/configuration.md");
    const std::regex name("`((ruvod|logging)\\.[^` ]*)`");
    int names = 0;
    for (std::sregex_iterator it(text.begin(), text.end(), name), end; it != end; ++it) {
        const std::string key = (*it)[1];
        ++names;
        // The files' own names, a whole group of keys, and a text of the message set.
        if (key == "ruvod.properties" || key == "ruvod.msg" || key == "logging." ||
            key == "ruvod.service-description") {
            continue;
        }
        bool known = findConfigurationKey(key) != nullptr;
        for (const auto& listed : ruvoConfigurationKeys()) known = known || listed.key == key;
        EXPECT_TRUE(known) << key << " is no key";
    }
    EXPECT_GT(names, 20);
}

TEST(ConfigurationFiles, EveryLineOfTheShippedFileIsAGoodOneWhenSwitchedOn) {
    const TestSupport::TemporaryDirectory directory;
    const TestSupport::WorkingDirectory there(directory.text());
    std::filesystem::create_directory(directory.path() / "build");
    // Examples stand behind a "#" with no blank after it.
    std::istringstream shipped(sourceFile("config/ruvod.properties"));
    std::string content;
    for (std::string line; std::getline(shipped, line);) {
        if (line.size() > 1 && line[0] == '#' && line[1] != ' ') line.erase(0, 1);
        content += line + "\n";
    }
    TestSupport::writeFile("shipped.properties", content);
    std::vector<std::string> found;
    checkConfiguration("shipped.properties",
                       [&found](const std::string& line) { found.push_back(line); });
    EXPECT_THAT(found, ::testing::IsEmpty());
    EXPECT_NE(content.find("ruvod.tcp-server.port"), std::string::npos);
}

}  // namespace
}  // namespace RuvoService
