#include "scheduler/cmd/BatchRunner.h"

#include "runtime/platform/Environment.h"
#include "runtime/platform/ShellCommand_posix.h"
#include "runtime/platform/StandardError.h"

#include <cstdio>

namespace RuvoCmd {

bool readBatchFile(const std::string& file, std::string& text, std::string& reason) {
    std::FILE* const stream = std::fopen(file.c_str(), "rb");
    if (stream == nullptr) {
        reason = VornPlatform::OsError::last().text();
        return false;
    }
    char piece[4096];
    std::size_t count = 0;
    while ((count = std::fread(piece, 1, sizeof piece, stream)) > 0) text.append(piece, count);
    const bool failed = std::ferror(stream) != 0;
    if (failed) reason = VornPlatform::OsError::last().text();
    std::fclose(stream);
    return !failed;
}

int runBatch(const std::vector<BatchStep>& steps) {
    int status = 0;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const BatchStep& step = steps[i];
        if (step.kind == BatchStep::Kind::ChangeDirectory) {
            status = 0;
            if (step.text.empty()) continue;
            if (const auto error = VornPlatform::changeDirectory(step.text)) {
                VornPlatform::writeStandardError("cmd: cd: " + step.text + ": " + error.text() +
                                                 "\n");
                status = kFailed;
            }
        } else if (i + 1 < steps.size()) {
            status = VornPlatform::runShellLine(step.text);
        } else {
            status = VornPlatform::becomeShellLine(step.text);
        }
    }
    return status;
}

}  // namespace RuvoCmd
