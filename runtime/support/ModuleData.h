#pragma once

#include "runtime/platform/Export.h"

namespace VornSupport {

// The object through which a loaded module is put to work and to rest. Every
// module exports the function vornModuleData, which returns its one object;
// who loaded the module attaches it, and detaches it before it lets the module
// go. attach and detach are called by one thread at a time.
class VORN_EXPORT ModuleData {
public:
    // `attachAtOnce` tells who loads the module to attach it straight away.
    explicit ModuleData(bool attachAtOnce) : attachAtOnce_(attachAtOnce) {}
    virtual ~ModuleData();
    ModuleData(const ModuleData&) = delete;
    ModuleData& operator=(const ModuleData&) = delete;

    virtual void attach() = 0;
    virtual void detach() = 0;

    bool isAttachedAtOnce() const { return attachAtOnce_; }

private:
    const bool attachAtOnce_;
};

// The type and the name of the exported function.
using ModuleDataFunction = ModuleData* (*)();
inline constexpr const char* kModuleDataFunction = "vornModuleData";

}  // namespace VornSupport
