#include "runtime/platform/BatchCommand.h"

#include "runtime/platform/Environment.h"
#include "runtime/platform/NativeLock.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <string_view>

namespace VornPlatform {
namespace {

struct Provided {
    NativeMutex mutex;
    std::string path;
};

Provided& provided() {
    static Provided* const one = new Provided;
    return *one;
}

bool isProgram(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

std::string absolute(const std::string& path) {
    if (path.starts_with('/')) return path;
    char* const folder = ::getcwd(nullptr, 0);
    if (folder == nullptr) return path;
    const std::string whole = std::string(folder) + '/' + path;
    std::free(folder);
    return whole;
}

}  // namespace

std::string batchCommand(const std::string& file) {
    constexpr std::string_view kSpecial = " \t\r\n\v\f\"'\\";
    if (!file.empty() && file.find_first_of(kSpecial) == std::string::npos) {
        return "cmd /c " + file;
    }
    std::string line = "cmd /c \"";
    for (const char c : file) {
        if (c == '"' || c == '\\') line += '\\';
        line += c;
    }
    return line + '"';
}

OsError startBatch(const std::string& file, ProcessHandle& process) {
    const std::string program = interpreterPath();
    if (program.empty()) return OsError(ENOENT);
    return startProcess(program, batchCommand(file), process);
}

std::string interpreterPath() {
    {
        const std::lock_guard lock(provided().mutex);
        if (isProgram(provided().path)) return provided().path;
    }
    const std::string path = getEnv("PATH").value_or("");
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find(':', begin), path.size());
        const std::string program = path.substr(begin, end - begin) + "/cmd";
        if (program.size() > 4 && program.front() == '/' && isProgram(program)) return program;
        begin = end + 1;
    }
    return {};
}

bool provideInterpreter(const std::string& folder) {
    const std::string program = absolute(folder + "/cmd");
    if (folder.empty() || !isProgram(program)) return !interpreterPath().empty();
    {
        const std::lock_guard lock(provided().mutex);
        provided().path = program;
    }
    // What an unset PATH stands for in execvp(3), less the working directory.
    const std::string path = getEnv("PATH").value_or("/bin:/usr/bin");
    if (path == folder || path.starts_with(folder + ':')) return true;
    return !setEnv("PATH", path.empty() ? folder : folder + ':' + path);
}

}  // namespace VornPlatform
