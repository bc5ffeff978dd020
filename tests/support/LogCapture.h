#pragma once

#include "tests/support/TestSupport.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

// Catches what the process logs while it lives, up to a level, in a file of its
// own. One at a time.
class LogCapture {
public:
    struct Record {
        int level;
        std::string thread;
        std::string text;
        bool operator==(const Record&) const = default;
    };

    explicit LogCapture(int level = 9);
    ~LogCapture();  // nothing is logged to the file any more; level as before
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<Record> records() const;
    // The texts of the records of one level (-1: of all), in order.
    std::vector<std::string> texts(int level = -1) const;
    // How many records of the level have exactly this text.
    std::size_t count(int level, std::string_view text) const;
    bool has(int level, std::string_view text) const { return count(level, text) > 0; }
    // The texts that begin so, in order.
    std::vector<std::string> beginning(std::string_view text) const;

private:
    TemporaryDirectory directory_;
    const int levelBefore_;
    const int targetBefore_;
};

// An address as the log shows it.
std::string addressText(const void* address);

}  // namespace TestSupport
