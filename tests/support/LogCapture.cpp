#include "tests/support/LogCapture.h"

#include "runtime/support/VornLogging.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <sstream>
#include <stdexcept>

namespace TestSupport {

using VornSupport::VornLogging;
using VornSupport::VornLogTarget;

LogCapture::LogCapture(int level)
    : levelBefore_(VornLogging::getInstance().getLogLevel()),
      targetBefore_(VornLogging::getInstance().getTarget()) {
    VornLogging& log = VornLogging::getInstance();
    log.setFile(directory_.file("log"), 0, 0);
    log.setTarget(static_cast<int>(VornLogTarget::File));
    log.setLogLevel(level);
}

LogCapture::~LogCapture() {
    VornLogging& log = VornLogging::getInstance();
    log.setTarget(targetBefore_);
    log.setLogLevel(levelBefore_);
    log.setFile("", 0, 0);
}

std::vector<LogCapture::Record> LogCapture::records() const {
    VornLogging::getInstance().flush();
    std::vector<Record> records;
    std::istringstream lines(readFile(directory_.file("log")));
    for (std::string line; std::getline(lines, line);) {
        const std::size_t thread = line.find(" [");
        const std::size_t level = line.find("] ", thread);
        if (thread == std::string::npos || level == std::string::npos ||
            line.size() < level + 4) {
            throw std::runtime_error("not a record: " + line);
        }
        records.push_back({line[level + 2] - '0',
                           line.substr(thread + 2, level - thread - 2),
                           line.substr(level + 4)});
    }
    return records;
}

std::vector<std::string> LogCapture::texts(int level) const {
    std::vector<std::string> texts;
    for (Record& record : records()) {
        if (level == -1 || record.level == level) texts.push_back(std::move(record.text));
    }
    return texts;
}

std::size_t LogCapture::count(int level, std::string_view text) const {
    const auto all = texts(level);
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), text));
}

std::vector<std::string> LogCapture::beginning(std::string_view text) const {
    auto all = texts();
    std::erase_if(all, [&](const std::string& one) { return !one.starts_with(text); });
    return all;
}

std::string addressText(const void* address) {
    char digits[24];
    const auto value = reinterpret_cast<std::uintptr_t>(address);
    return "0x" + std::string(digits, std::to_chars(digits, digits + sizeof digits, value, 16).ptr);
}

}  // namespace TestSupport
