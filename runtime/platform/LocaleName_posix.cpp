#include "runtime/platform/LocaleName.h"

#include "runtime/platform/Environment.h"

namespace VornPlatform {

std::string localeName(bool) {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        if (const auto value = getEnv(variable); value && !value->empty()) return *value;
    }
    return {};
}

}  // namespace VornPlatform
