#pragma once

#include "runtime/platform/Export.h"

#include <string>

namespace VornPlatform {

// A shared library that was loaded at run time. It is unloaded by close() and
// by the destructor: by then nothing of its making may live, neither objects
// nor exceptions nor threads. One thread at a time. Never throws.
class VORN_EXPORT ModuleLoader {
public:
    ModuleLoader() = default;
    ~ModuleLoader() { close(); }
    ModuleLoader(const ModuleLoader&) = delete;
    ModuleLoader& operator=(const ModuleLoader&) = delete;

    // Loads the file and runs its initialisation; closes what was open before.
    // The libraries that it needs are looked for in its own folder too
    // (POSIX: as its run path says). False, with a text for humans in `error`,
    // when that fails. `path` with its folder; a bare file name is looked for
    // where the system looks for libraries.
    bool open(const std::string& path, std::string& error);
    bool isOpen() const { return handle_ != nullptr; }
    void close();
    // Leaves the library loaded for the life of the process.
    void keep() { handle_ = nullptr; }

    // The address of an exported function; null when there is none.
    void* symbol(const char* name) const;
    template <class Function>
    Function* function(const char* name) const {
        return reinterpret_cast<Function*>(symbol(name));
    }

private:
    void* handle_ = nullptr;
};

// The file name of the library `name`: "libNAME.so", "NAME.dll".
VORN_EXPORT std::string moduleFileName(const std::string& name);

}  // namespace VornPlatform
