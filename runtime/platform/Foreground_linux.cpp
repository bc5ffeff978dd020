#include "runtime/platform/Foreground.h"

#include "runtime/platform/Environment.h"
#include "runtime/platform/Signals_posix.h"
#include "runtime/platform/SpareDescriptor_posix.h"

#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace VornPlatform {
namespace {

constexpr const char* kShell = "/bin/sh";

class SpawnAttributes {
public:
    SpawnAttributes() {
        note(::posix_spawnattr_init(&attributes));
        const sigset_t mask = maskForChildren();
        note(::posix_spawnattr_setsigmask(&attributes, &mask));
        note(::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK));
    }
    ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    int failed() const { return failed_; }  // the first number of a failure, or 0

    posix_spawnattr_t attributes;

private:
    void note(int result) {
        if (failed_ == 0) failed_ = result;
    }

    int failed_ = 0;
};

int spawn(const std::string& file, std::vector<std::string> words, pid_t& process) {
    std::vector<char*> texts;
    for (std::string& word : words) texts.push_back(word.data());
    texts.push_back(nullptr);
    const SpawnAttributes settings;
    if (settings.failed() != 0) return settings.failed();
    return ::posix_spawn(&process, file.c_str(), nullptr, &settings.attributes, texts.data(),
                         environ);
}

int spawnFile(const std::string& file, const std::vector<std::string>& words, pid_t& process) {
    const int failed = spawn(file, words, process);
    if (failed != ENOEXEC) return failed;
    std::vector<std::string> script = {"sh", file};
    script.insert(script.end(), words.begin() + 1, words.end());
    return spawn(kShell, std::move(script), process);
}

bool isFolder(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// What cannot be run does not hide what stands further along the path, but is told
// of where there is nothing.
int spawnAlongPath(const std::vector<std::string>& words, pid_t& process) {
    const std::string path = getEnv("PATH").value_or("/bin:/usr/bin");
    int result = ENOENT;
    for (std::string_view rest = path;;) {
        const std::size_t end = rest.find(':');
        const std::string folder(rest.substr(0, end));
        const std::string file = (folder.empty() ? "." : folder) + '/' + words[0];
        const int failed = isFolder(file) ? ENOENT : spawnFile(file, words, process);
        if (failed != ENOENT && failed != ENOTDIR && failed != EACCES) return failed;
        if (failed == EACCES) result = EACCES;
        if (end == std::string_view::npos) return result;
        rest.remove_prefix(end + 1);
    }
}

}  // namespace

OsError startInForeground(const std::vector<std::string>& words, ProcessHandle& process) {
    if (words.empty() || words[0].empty()) return OsError(EINVAL);
    for (const std::string& word : words) {
        if (word.find('\0') != std::string::npos) return OsError(EINVAL);
    }
    if (const OsError error = keepEndsOfChildren()) return error;
    SpareDescriptor spare;
    if (spare.error()) return spare.error();
    pid_t id = 0;
    const bool isPath = words[0].find('/') != std::string::npos;
    const int failed = isPath ? spawnFile(words[0], words, id) : spawnAlongPath(words, id);
    if (failed != 0) return OsError(failed);
    spare.release();
    process.adopt(id, ProcessHandle::kNone);
    return {};
}

void handOn(const EndRequest& request, ProcessHandle& process) {
    // Until its end has been collected, nobody else gets its number.
    if (request.reachedOthers || !process.isOpen() || process.exitCode() >= 0) return;
    ::kill(static_cast<pid_t>(process.processId()), request.signal);
}

}  // namespace VornPlatform
