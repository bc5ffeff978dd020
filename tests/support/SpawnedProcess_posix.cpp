#include "tests/support/SpawnedProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string_view>

extern char** environ;

namespace TestSupport {

std::string environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string writtenText(const std::string& file) {
    std::string text = readFile(file);
    std::erase(text, '\r');
    return text;
}

namespace {

// For exec(2). A variable that is given is not taken from this process as well.
std::vector<char*> environmentWith(const std::vector<std::string>& variables) {
    std::vector<char*> all;
    for (const std::string& variable : variables) all.push_back(const_cast<char*>(variable.c_str()));
    for (char** each = environ; *each != nullptr; ++each) {
        const std::string_view old(*each);
        const auto isOld = [&](const std::string& variable) {
            return old.starts_with(variable.substr(0, variable.find('=') + 1));
        };
        if (std::none_of(variables.begin(), variables.end(), isOld)) all.push_back(*each);
    }
    all.push_back(nullptr);
    return all;
}

}  // namespace

SpawnedProcess::SpawnedProcess(const std::vector<std::string>& line, const std::string& outputFile,
                               const std::string& errorsFile,
                               const std::vector<std::string>& variables)
    : outputFile_(outputFile), errorsFile_(errorsFile) {
    std::vector<char*> words;
    for (const std::string& word : line) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    std::vector<char*> environment = environmentWith(variables);

    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawnattr_init(&attributes);
    const int flags = O_WRONLY | O_CREAT | O_APPEND;
    ::posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&files, 1, outputFile.c_str(), flags, 0600);
    ::posix_spawn_file_actions_addopen(&files, 2, errorsFile.c_str(), flags, 0600);
    // As from a terminal, even where we ourselves run in the background of a shell.
    sigset_t all;
    sigset_t none;
    ::sigfillset(&all);
    ::sigemptyset(&none);
    ::posix_spawnattr_setsigdefault(&attributes, &all);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setflags(
        &attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    const int failed =
        ::posix_spawnp(&id_, words[0], &files, &attributes, words.data(), environment.data());
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&files);
    if (failed != 0) throw std::runtime_error(line[0] + ": " + std::strerror(failed));
}

SpawnedProcess::~SpawnedProcess() {
    ::kill(-id_, SIGKILL);
    waitForExit();
}

std::optional<int> SpawnedProcess::waitForExit(std::chrono::milliseconds bound) {
    waitUntil(
        [this] {
            int raw = 0;
            if (status_ || ::waitpid(id_, &raw, WNOHANG) != id_) return status_.has_value();
            status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
            return true;
        },
        bound);
    return status_;
}

void SpawnedProcess::signal(int number) const {
    if (!status_) ::kill(id_, number);
}

bool SpawnedProcess::hasLeftOthers() const { return ::kill(-id_, 0) == 0; }

std::string SpawnedProcess::output() const { return writtenText(outputFile_); }
std::string SpawnedProcess::errors() const { return writtenText(errorsFile_); }

}  // namespace TestSupport
