#include "scheduler/cmd/BatchRunner.h"

#include "runtime/platform/ShellCommand_posix.h"
#include "scheduler/cmd/BatchScript.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace RuvoCmd {
namespace {

constexpr size_t kFirstRoom = 4096;

// All that is left of the stream, and a zero byte.
char* readAll(FILE* stream, size_t& size) {
    char* text = nullptr;
    size_t count = 1;
    for (size_t room = kFirstRoom; count > 0; room *= 2) {
        auto* const larger = static_cast<char*>(realloc(text, room));
        if (larger == nullptr) break;
        text = larger;
        while ((count = fread(text + size, 1, room - 1 - size, stream)) > 0) {
            size += count;
            if (size == room - 1) break;
        }
    }
    if (count == 0 && ferror(stream) == 0) {
        text[size] = '\0';
        return text;
    }
    const int error = errno;
    free(text);
    errno = error;
    return nullptr;
}

int change(const char* directory) {
    if (*directory == '\0') return 0;
    const int error = VornPlatform::enterDirectory(directory);
    if (error == 0) return 0;
    fprintf(stderr, "cmd: cd: %s: %s\n", directory, strerror(error));
    return kFailed;
}

}  // namespace

char* readBatchFile(const char* file, size_t& size) {
    FILE* const stream = fopen(file, "rb");
    if (stream == nullptr) return nullptr;
    size = 0;
    char* const text = readAll(stream, size);
    const int error = errno;
    fclose(stream);
    errno = error;
    return text;
}

int runBatch(char* text, size_t size) {
    BatchScript script(text, size);
    int status = 0;
    BatchStep step;
    for (bool more = script.next(step); more;) {
        const BatchStep current = step;
        more = script.next(step);
        if (current.kind == BatchStep::Kind::ChangeDirectory) {
            status = change(current.text);
        } else if (more) {
            status = VornPlatform::runShellLine(current.text);
        } else {
            status = VornPlatform::becomeShellLine(current.text);
        }
    }
    return status;
}

}  // namespace RuvoCmd
