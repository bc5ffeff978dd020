#include "runtime/platform/BatchCommand.h"

#include "runtime/platform/WideText_windows.h"

#include <windows.h>

#include <string_view>

namespace VornPlatform {

// The interpreter takes the outer pair of two pairs of quotes away, whatever
// stands between them.
std::string batchCommand(const std::string& file) {
    constexpr std::string_view kSpecial = " \t&()[]{}^=;!'+,`~@";
    if (file.find_first_of(kSpecial) == std::string::npos) return "cmd /c " + file;
    return "cmd /c \"\"" + file + "\"\"";
}

OsError startBatch(const std::string& file, ProcessHandle& process) {
    const std::string program = interpreterPath();
    if (program.empty()) return OsError(ERROR_FILE_NOT_FOUND);
    return startProcess(program, batchCommand(file), process);
}

std::string interpreterPath() {
    wchar_t folder[MAX_PATH];
    const UINT length = ::GetSystemDirectoryW(folder, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) return {};
    return toUtf8(std::wstring(folder, length) + L"\\cmd.exe");
}

bool provideInterpreter(const std::string&) { return !interpreterPath().empty(); }

}  // namespace VornPlatform
