#pragma once

#include <stddef.h>

namespace RuvoCmd {

// A line of a batch file that does something.
struct BatchStep {
    enum class Kind { ChangeDirectory, Command };

    Kind kind = Kind::Command;
    const char* text = "";  // the directory, or the whole line, where the file was read to
};

// Takes a batch file apart, a step at a time. Lines end in LF or CR LF, the last
// one with or without; what follows a zero byte in a line does not count. "cd /d
// DIRECTORY", in any case, with or without quotes around the directory, changes
// it; lines of blanks do nothing; every other line is a command, as it stands.
// Allocates nothing, throws nothing. One thread.
class BatchScript {
public:
    // Changes the text, in which the steps' ends are marked; text[size] is there
    // to be written to. It outlives the steps.
    BatchScript(char* text, size_t size) : at_(text), end_(text + size) {}

    // False, and `step` stays as it is, when there are no more.
    bool next(BatchStep& step);

private:
    char* at_;
    char* const end_;
};

}  // namespace RuvoCmd
