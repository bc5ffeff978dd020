#include "runtime/platform/StandardError.h"
#include "scheduler/cmd/BatchRunner.h"

#include <string>

// cmd /c FILE
int main(int argc, char** argv) {
    const std::string option = argc > 1 ? argv[1] : "";
    if (argc != 3 || (option != "/c" && option != "/C")) {
        VornPlatform::writeStandardError("usage: cmd /c FILE\n");
        return RuvoCmd::kBadUsage;
    }
    std::string text;
    std::string reason;
    if (!RuvoCmd::readBatchFile(argv[2], text, reason)) {
        VornPlatform::writeStandardError(std::string("cmd: ") + argv[2] + ": " + reason + "\n");
        return RuvoCmd::kFailed;
    }
    return RuvoCmd::runBatch(RuvoCmd::readBatch(text));
}
