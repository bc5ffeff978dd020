#pragma once

#include "client/RuvoTasks.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Ruvoctl {

// "daily", "every 28 days", ...
std::string frequencyText(Ruvo::RuvoFrequency frequency);

// What a person types: a program and its arguments, which reach it as they are,
// or, with `isShellText`, a text for the command interpreter. Relative folders
// and log files count from the working directory. Throws UsageError for what no
// batch file can hold.
struct TypedCommand {
    std::vector<std::string> words;
    bool isShellText = false;
    std::string directory{};
    std::string logFile{};
};
Ruvo::RuvoTaskCommand commandOf(const TypedCommand& typed);

// The status with which the program ends on behalf of a task: the task's, but
// never 0 where the task's is not.
int exitStatusOf(std::int32_t taskStatus);

}  // namespace Ruvoctl
