#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace RuvoCmd {

// A line of a batch file that does something.
struct BatchStep {
    enum class Kind { ChangeDirectory, Command };

    Kind kind = Kind::Command;
    std::string text;  // the directory, or the whole line

    bool operator==(const BatchStep&) const = default;
};

// Takes a batch file apart. Lines end in LF or CR LF, the last one with or
// without; what follows a zero byte in a line does not count. "cd /d DIRECTORY",
// in any case, with or without quotes around the directory, changes it; lines of
// blanks do nothing; every other line is a command, as it stands.
std::vector<BatchStep> readBatch(std::string_view text);

}  // namespace RuvoCmd
