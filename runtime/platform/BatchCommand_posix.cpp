#include "runtime/platform/BatchCommand.h"

#include "runtime/platform/Environment.h"

#include <unistd.h>

#include <string_view>

namespace VornPlatform {

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

bool provideInterpreter(const std::string& folder) {
    if (folder.empty() || ::access((folder + "/cmd").c_str(), X_OK) != 0) return false;
    // What an unset PATH stands for in execvp(3), less the working directory.
    const std::string path = getEnv("PATH").value_or("/bin:/usr/bin");
    if (path == folder || path.starts_with(folder + ':')) return true;
    return !setEnv("PATH", path.empty() ? folder : folder + ':' + path);
}

}  // namespace VornPlatform
