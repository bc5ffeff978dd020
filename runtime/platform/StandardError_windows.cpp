#include "runtime/platform/StandardError.h"

#include <windows.h>

namespace VornPlatform {

bool writeStandardError(std::string_view text) {
    const HANDLE handle = ::GetStdHandle(STD_ERROR_HANDLE);
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return false;
    while (!text.empty()) {
        DWORD count = 0;
        if (!::WriteFile(handle, text.data(), static_cast<DWORD>(text.size()), &count, nullptr)) {
            return false;
        }
        text.remove_prefix(count);
    }
    return true;
}

}  // namespace VornPlatform
