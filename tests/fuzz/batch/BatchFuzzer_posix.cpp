// Any bytes as a batch file. Its steps are read only, never run.

#include "tests/fuzz/Check.h"
#include "tests/fuzz/Replay.h"
#include "tests/scheduler/cmd/BatchSteps.h"

#include <algorithm>
#include <string>
#include <string_view>

using CmdTests::readBatch;
using CmdTests::Step;
using FuzzTests::check;
using RuvoCmd::BatchStep;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);

    const auto steps = readBatch(input);
    const auto lines = std::count(input.begin(), input.end(), '\n') + 1;
    check(steps.size() <= static_cast<std::size_t>(lines), "one step a line at most");

    std::string written;
    for (const Step& step : steps) {
        check(step.text.find('\n') == step.text.npos, "no step goes beyond its line");
        check(step.text.find('\0') == step.text.npos, "a zero byte ends a line");
        check(input.find(step.text) != input.npos, "a step stands in the file");
        if (step.kind == BatchStep::Kind::ChangeDirectory) {
            written += "cd /d \"" + step.text + "\"\r\n";
        } else {
            check(step.text.find_first_not_of(" \t\r\v\f") != step.text.npos,
                  "a command is more than blanks");
            written += step.text + "\r\n";
        }
    }
    check(readBatch(written) == steps, "steps that are written are read again");
    return 0;
}
