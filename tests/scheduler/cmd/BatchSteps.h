#pragma once

#include "scheduler/cmd/BatchScript.h"

#include <string>
#include <string_view>
#include <vector>

namespace CmdTests {

struct Step {
    RuvoCmd::BatchStep::Kind kind;
    std::string text;

    bool operator==(const Step&) const = default;
};
using Steps = std::vector<Step>;

// All steps of a batch file. The interpreter's room is that of the text and the
// byte behind it, no more: the sanitizers look.
inline Steps readBatch(std::string_view text) {
    std::vector<char> room(text.begin(), text.end());
    room.push_back('x');
    room.shrink_to_fit();
    RuvoCmd::BatchScript script(room.data(), text.size());
    Steps steps;
    for (RuvoCmd::BatchStep step; script.next(step);) steps.push_back({step.kind, step.text});
    return steps;
}

}  // namespace CmdTests
