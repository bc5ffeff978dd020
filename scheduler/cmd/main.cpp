#include "scheduler/cmd/BatchRunner.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// cmd /c FILE
int main(int argc, char** argv) {
    const char* const option = argc > 1 ? argv[1] : "";
    if (argc != 3 || (strcmp(option, "/c") != 0 && strcmp(option, "/C") != 0)) {
        fputs("usage: cmd /c FILE\n", stderr);
        return RuvoCmd::kBadUsage;
    }
    size_t size = 0;
    char* const text = RuvoCmd::readBatchFile(argv[2], size);
    if (text == nullptr) {
        fprintf(stderr, "cmd: %s: %s\n", argv[2], strerror(errno));
        return RuvoCmd::kFailed;
    }
    const int status = RuvoCmd::runBatch(text, size);
    free(text);
    return status;
}
