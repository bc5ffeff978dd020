// Any bytes as a configuration file: read, loaded, looked over by the check, and
// its references expanded.

#include "runtime/support/VornExpandString.h"
#include "runtime/support/VornProperties.h"
#include "runtime/support/VornPropertiesText.h"
#include "service/RuvoConfigurationCheck.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/Replay.h"
#include "tests/support/TestSupport.h"

#include <algorithm>
#include <map>
#include <string>
#include <string_view>

using namespace VornSupport;
using FuzzTests::check;

namespace {

using Table = std::map<std::string, std::string>;

// What an expansion puts in at most, and one value that it may still take whole.
constexpr std::size_t kMostExpanded = 4 * 1024 * 1024;
constexpr std::string_view kBlanks = " \t\r\f\v";

bool isTrimmed(std::string_view text) {
    return text.empty() || (kBlanks.find(text.front()) == kBlanks.npos &&
                            kBlanks.find(text.back()) == kBlanks.npos);
}

Table tableOf(std::string_view text) {
    Table table;
    std::size_t last = 0;
    visitPropertyLines(text, "=", [&](const VornPropertyLine& line) {
        check(line.number > last, "the numbers of the lines grow");
        last = line.number;
        for (const std::string_view part : {line.key, line.value}) {
            check(part.find('\n') == part.npos && isTrimmed(part),
                  "keys and values are parts of lines without the blanks around them");
        }
        check(line.key.find('=') == line.key.npos, "the first separator counts");
        if (!line.key.empty()) table.insert_or_assign(std::string(line.key), line.value);
    });
    const auto lines = std::count(text.begin(), text.end(), '\n') + 1;
    check(last <= static_cast<std::size_t>(lines), "no more lines than the text has");
    return table;
}

void checkExpansion(const VornProperties<std::string>& properties, const Table& table) {
    std::size_t largest = 0;
    for (const auto& [key, value] : table) largest = std::max(largest, value.size());
    int left = 8;  // each may come to megabytes
    for (const auto& [key, value] : table) {
        if (value.find("${") == value.npos) {
            check(VornExpandString(value, properties) == value,
                  "a text without references stays as it is");
        } else if (left-- > 0) {
            const std::string expanded = VornExpandString(value, properties);
            check(expanded.size() <= kMostExpanded + value.size() + largest,
                  "an expansion is bounded");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TestSupport::TemporaryDirectory folder;
    static const std::string file = folder.file("ruvod.properties");
    const std::string_view input(reinterpret_cast<const char*>(data), size);

    const Table table = tableOf(input);
    // The comment, as a byte-order mark counts at the very beginning only.
    std::string written = "#\n";
    for (const auto& [key, value] : table) written += key + " = " + value + "\r\n";
    check(tableOf(written) == table, "what is written is read again");

    TestSupport::writeFile(file, input);
    VornProperties<std::string> properties;
    properties.loadProperties(file);
    check(properties.size() == table.size(), "the file holds as many keys as its text");
    for (const auto& [key, value] : table) {
        check(properties.getPropertyOr(key, value + "?") == value,
              "a value is loaded as it stands");
    }
    checkExpansion(properties, table);

    RuvoService::checkConfiguration(file, [](const std::string& line) {
        check(!line.empty() && line.find('\n') == line.npos, "a complaint is one line");
    });
    return 0;
}
