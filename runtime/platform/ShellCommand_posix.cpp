#include "runtime/platform/ShellCommand_posix.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace VornPlatform {
namespace {

constexpr const char* kShell = "/bin/sh";
constexpr int kSignalBase = 128;
// Linux takes arguments of 128 KiB each.
constexpr std::size_t kLongestArgument = 100'000;
// Puts a line together again that came in several arguments.
constexpr const char* kJoin = "line=; for part do line=$line$part; done; set --; eval \"$line\"";

class ShellArguments {
public:
    explicit ShellArguments(const std::string& line) {
        texts_ = {"sh", "-c", "--"};
        if (line.size() <= kLongestArgument) {
            texts_.push_back(line);
        } else {
            texts_.insert(texts_.end(), {kJoin, "sh"});
            for (std::size_t at = 0; at < line.size(); at += kLongestArgument) {
                texts_.push_back(line.substr(at, kLongestArgument));
            }
        }
        for (std::string& text : texts_) pointers_.push_back(text.data());
        pointers_.push_back(nullptr);
    }
    char* const* get() const { return pointers_.data(); }

private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};

}  // namespace

int runShellLine(const std::string& line) {
    const ShellArguments arguments(line);
    pid_t process = 0;
    if (::posix_spawn(&process, kShell, nullptr, nullptr, arguments.get(), environ) != 0) {
        return kCannotRun;
    }
    int status = 0;
    while (::waitpid(process, &status, 0) < 0) {
        if (errno != EINTR) return kCannotRun;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalBase + WTERMSIG(status);
}

int becomeShellLine(const std::string& line) {
    ::execve(kShell, ShellArguments(line).get(), environ);
    return kCannotRun;
}

}  // namespace VornPlatform
