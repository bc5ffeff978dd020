#pragma once

#include "scheduler/cmd/BatchScript.h"

#include <string>
#include <vector>

namespace RuvoCmd {

constexpr int kFailed = 1;
constexpr int kBadUsage = 2;

// The whole of a batch file, read before its first line is run: it may be
// deleted then. False, with the reason, when it cannot be read.
bool readBatchFile(const std::string& file, std::string& text, std::string& reason);

// Runs the steps, one after the other, commands through the shell. A step that
// fails does not keep the next ones from being run. The result is the status of
// the last step, 0 when there is none. When that is a command, the shell takes
// the place of this process and nothing is returned.
int runBatch(const std::vector<BatchStep>& steps);

}  // namespace RuvoCmd
