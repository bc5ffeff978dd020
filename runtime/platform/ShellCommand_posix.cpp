#include "runtime/platform/ShellCommand_posix.h"

#include <errno.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace VornPlatform {
namespace {

constexpr const char* kShell = "/bin/sh";
constexpr int kSignalBase = 128;
// Linux takes arguments of 128 KiB each.
constexpr size_t kLongestArgument = 100'000;
constexpr size_t kFixedArguments = 6;  // at most, the null at the end included
// Puts a line together again that came in several arguments.
constexpr const char* kJoin = "line=; for part do line=$line$part; done; set --; eval \"$line\"";

// What the shell is given. Without memory there is nothing: get() is null.
class ShellArguments {
public:
    explicit ShellArguments(const char* line) {
        const size_t length = strlen(line);
        const size_t pieces = length / kLongestArgument + 1;
        arguments_ = static_cast<char**>(calloc(pieces + kFixedArguments, sizeof(char*)));
        pieces_ = static_cast<char*>(malloc(length + pieces));
        if (get() == nullptr) return;
        addFixed("sh");
        addFixed("-c");
        addFixed("--");
        if (length > kLongestArgument) {
            addFixed(kJoin);
            addFixed("sh");
        }
        const char* from = line;
        char* to = pieces_;
        do {
            const size_t size = strnlen(from, kLongestArgument);
            memcpy(to, from, size);
            to[size] = '\0';
            arguments_[count_++] = to;
            to += size + 1;
            from += size;
        } while (*from != '\0');
    }
    ~ShellArguments() {
        free(arguments_);
        free(pieces_);
    }
    ShellArguments(const ShellArguments&) = delete;
    ShellArguments& operator=(const ShellArguments&) = delete;

    char* const* get() const { return pieces_ != nullptr ? arguments_ : nullptr; }

private:
    // exec(3) changes nothing in them, whatever its declaration says.
    void addFixed(const char* text) { arguments_[count_++] = const_cast<char*>(text); }

    char** arguments_ = nullptr;
    char* pieces_ = nullptr;
    size_t count_ = 0;
};

}  // namespace

int runShellLine(const char* line) {
    const ShellArguments arguments(line);
    pid_t process = 0;
    if (arguments.get() == nullptr ||
        ::posix_spawn(&process, kShell, nullptr, nullptr, arguments.get(), environ) != 0) {
        return kCannotRun;
    }
    int status = 0;
    while (::waitpid(process, &status, 0) < 0) {
        if (errno != EINTR) return kCannotRun;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalBase + WTERMSIG(status);
}

int becomeShellLine(const char* line) {
    const ShellArguments arguments(line);
    if (arguments.get() != nullptr) ::execve(kShell, arguments.get(), environ);
    return kCannotRun;
}

int enterDirectory(const char* directory) { return ::chdir(directory) == 0 ? 0 : errno; }

}  // namespace VornPlatform
