#include "runtime/platform/ModuleFolder.h"

#include "runtime/platform/PathText.h"

#include <dlfcn.h>
#include <link.h>

#include <filesystem>
#include <system_error>

namespace VornPlatform {

namespace {

// The loader knows the program itself only by the name that it was started
// with, which says nothing about where it is and is the caller's to choose.
std::filesystem::path fileOf(const ::Dl_info& info, const ::link_map* loaded,
                             std::error_code& failed) {
    const bool isProgram = loaded != nullptr && *loaded->l_name == '\0';
    if (isProgram) return std::filesystem::read_symlink("/proc/self/exe", failed);
    return std::filesystem::absolute(pathFromUtf8(info.dli_fname), failed);
}

}  // namespace

std::string folderOfModuleAt(const void* address) {
    ::Dl_info info;
    void* loaded = nullptr;
    if (::dladdr1(address, &info, &loaded, RTLD_DL_LINKMAP) == 0 || info.dli_fname == nullptr) {
        return {};
    }
    std::error_code failed;
    const auto file = fileOf(info, static_cast<const ::link_map*>(loaded), failed);
    return failed ? std::string() : utf8FromPath(file.parent_path());
}

}  // namespace VornPlatform
