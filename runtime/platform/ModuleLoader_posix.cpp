#include "runtime/platform/ModuleLoader.h"

#include <dlfcn.h>

namespace VornPlatform {

bool ModuleLoader::open(const std::string& path, std::string& error) {
    close();
    // An empty name would be this program itself.
    if (!path.empty()) handle_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ != nullptr) return true;
    const char* const reason = path.empty() ? nullptr : ::dlerror();
    error = reason == nullptr ? path + ": no such library" : reason;
    return false;
}

void ModuleLoader::close() {
    if (handle_ != nullptr) ::dlclose(handle_);
    handle_ = nullptr;
}

void* ModuleLoader::symbol(const char* name) const {
    return handle_ == nullptr ? nullptr : ::dlsym(handle_, name);
}

std::string moduleFileName(const std::string& name) { return "lib" + name + ".so"; }

}  // namespace VornPlatform
