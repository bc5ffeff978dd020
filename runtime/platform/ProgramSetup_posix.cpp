#include "runtime/platform/ProgramSetup.h"

#include <fcntl.h>
#include <unistd.h>

namespace VornPlatform {

std::vector<std::string> programArguments(int argc, char** argv) {
    return argc > 1 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

// A stream that the caller closed is made one that fails: the next file or socket
// would get its number and, with it, what is meant to be printed.
void prepareStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(stream, F_GETFD) != -1) continue;
        (void)::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

}  // namespace VornPlatform
