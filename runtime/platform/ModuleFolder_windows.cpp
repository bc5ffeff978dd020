#include "runtime/platform/ModuleFolder.h"

#include "runtime/platform/PathText.h"

#include <windows.h>

#include <filesystem>
#include <vector>

namespace VornPlatform {

std::string folderOfModuleAt(const void* address) {
    HMODULE module = nullptr;
    constexpr DWORD kFlags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                             GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    if (!::GetModuleHandleExW(kFlags, static_cast<LPCWSTR>(address), &module)) return {};
    std::vector<wchar_t> name(MAX_PATH);
    for (;;) {
        const DWORD length =
            ::GetModuleFileNameW(module, name.data(), static_cast<DWORD>(name.size()));
        if (length == 0) return {};
        if (length < name.size()) {
            return utf8FromPath(std::filesystem::path(name.data()).parent_path());
        }
        name.resize(2 * name.size());  // it was cut
    }
}

}  // namespace VornPlatform
