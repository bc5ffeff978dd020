#include "runtime/platform/ModuleLoader.h"

#include "runtime/platform/OsError.h"
#include "runtime/platform/PathText.h"
#include "runtime/platform/WideText_windows.h"

#include <windows.h>

#include <filesystem>
#include <system_error>

namespace VornPlatform {

bool ModuleLoader::open(const std::string& path, std::string& error) {
    close();
    // The search in the library's own folder is defined for absolute paths only.
    std::filesystem::path file = pathFromUtf8(path);
    DWORD flags = 0;
    if (file.has_parent_path()) {
        std::error_code failed;
        const auto absolute = std::filesystem::absolute(file, failed);
        if (!failed) file = absolute;
        flags = LOAD_WITH_ALTERED_SEARCH_PATH;
    }
    handle_ = ::LoadLibraryExW(file.c_str(), nullptr, flags);
    if (handle_ == nullptr) error = path + ": " + OsError::last().text();
    return handle_ != nullptr;
}

void ModuleLoader::close() {
    if (handle_ != nullptr) ::FreeLibrary(static_cast<HMODULE>(handle_));
    handle_ = nullptr;
}

void* ModuleLoader::symbol(const char* name) const {
    if (handle_ == nullptr) return nullptr;
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(handle_), name));
}

std::string moduleFileName(const std::string& name) { return name + ".dll"; }

}  // namespace VornPlatform
