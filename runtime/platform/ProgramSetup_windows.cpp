#include "runtime/platform/ProgramSetup.h"

#include "runtime/platform/WideText_windows.h"

#include <cstdio>

#include <windows.h>

#include <shellapi.h>

#include <fcntl.h>
#include <io.h>

namespace VornPlatform {

std::vector<std::string> programArguments(int, char**) {
    std::vector<std::string> arguments;
    int count = 0;
    wchar_t** const wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    if (wide == nullptr) return arguments;
    for (int i = 1; i < count; ++i) arguments.push_back(toUtf8(wide[i]));
    ::LocalFree(wide);
    return arguments;
}

void prepareStandardStreams() {
    ::_setmode(::_fileno(stdout), _O_BINARY);
    ::_setmode(::_fileno(stderr), _O_BINARY);
    ::SetConsoleOutputCP(CP_UTF8);
}

}  // namespace VornPlatform
