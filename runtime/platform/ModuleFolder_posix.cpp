#include "runtime/platform/ModuleFolder.h"

#include "runtime/platform/PathText.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>

namespace VornPlatform {

std::string folderOfModuleAt(const void* address) {
    ::Dl_info info;
    if (::dladdr(address, &info) == 0 || info.dli_fname == nullptr) return {};
    std::error_code failed;
    const auto file = std::filesystem::absolute(pathFromUtf8(info.dli_fname), failed);
    return failed ? std::string() : utf8FromPath(file.parent_path());
}

}  // namespace VornPlatform
