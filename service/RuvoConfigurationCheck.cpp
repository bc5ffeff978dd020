#include "service/RuvoConfigurationCheck.h"

#include "runtime/support/VornPropertiesText.h"
#include "runtime/support/VornShortText.h"
#include "service/RuvoConfigurationKeys.h"

#include <map>
#include <string>
#include <string_view>

namespace RuvoService {

using VornSupport::shortText;
using VornSupport::VornPropertyLine;

namespace {

struct Value {
    std::size_t line;
    std::string text;
};

class Checker {
public:
    Checker(const std::string& fileName, const std::function<void(const std::string&)>& found)
        : fileName_(fileName), found_(found) {}

    void visit(const VornPropertyLine& line) {
        if (line.key.empty()) {
            complain(line.number, "there is no key and value in \"" + shortText(line.value) + "\"");
            return;
        }
        const std::string key(line.key);
        if (const auto earlier = values_.find(key); earlier != values_.end()) {
            complain(line.number,
                     shortText(key) + ": was given before, on line " + std::to_string(earlier->second.line));
        }
        values_.insert_or_assign(key, Value{line.number, std::string(line.value)});
    }

    // After the last line, for the directory that others count from may come last.
    void finish() {
        const auto operating = values_.find("ruvod.operating-directory");
        const auto directories =
            RuvoDirectories::of(operating == values_.end() ? "" : operating->second.text);
        for (const auto& [key, value] : values_) {
            const RuvoConfigurationKey* const known = findConfigurationKey(key);
            const std::string complaint =
                known == nullptr ? "the key is unknown"
                                 : complainAboutValue(*known, value.text, directories);
            if (!complaint.empty()) complain(value.line, shortText(key) + ": " + complaint);
        }
        for (const auto& known : ruvoConfigurationKeys()) {
            if (!known.required || values_.contains(known.key)) continue;
            found_(fileName_ + ": " + std::string(known.key) + ": the key is missing");
        }
    }

private:
    void complain(std::size_t line, const std::string& text) {
        found_(fileName_ + ":" + std::to_string(line) + ": " + text);
    }

    const std::string& fileName_;
    const std::function<void(const std::string&)>& found_;
    std::map<std::string, Value, std::less<>> values_;
};

}  // namespace

void checkConfiguration(const std::string& fileName,
                        const std::function<void(const std::string& line)>& found) {
    std::string text;
    if (!VornSupport::readPropertiesText(fileName, text)) {
        found(fileName + ": the file cannot be read");
        return;
    }
    Checker checker(fileName, found);
    VornSupport::visitPropertyLines(
        text, "=", [&checker](const VornPropertyLine& line) { checker.visit(line); });
    checker.finish();
}

}  // namespace RuvoService
