#include "runtime/platform/ProgramSetup.h"

#include <cstdlib>

namespace VornPlatform {

std::vector<std::string> programArguments(int argc, char** argv) {
    return argc > 1 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

std::optional<std::string> environmentVariable(const char* name) {
    const char* const value = std::getenv(name);
    if (value == nullptr) return std::nullopt;
    return value;
}

void prepareStandardStreams() {}

}  // namespace VornPlatform
