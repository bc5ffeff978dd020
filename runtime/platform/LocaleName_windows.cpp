#include "runtime/platform/LocaleName.h"

#include "runtime/platform/Environment.h"
#include "runtime/platform/WideText_windows.h"

#include <windows.h>

namespace VornPlatform {

std::string localeName(bool ofUser) {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        if (const auto value = getEnv(variable); value && !value->empty()) return *value;
    }
    wchar_t name[LOCALE_NAME_MAX_LENGTH] = {};
    const int length = ofUser ? ::GetUserDefaultLocaleName(name, LOCALE_NAME_MAX_LENGTH)
                              : ::GetSystemDefaultLocaleName(name, LOCALE_NAME_MAX_LENGTH);
    return length > 0 ? toUtf8(name) : std::string();
}

}  // namespace VornPlatform
