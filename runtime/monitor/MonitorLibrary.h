#pragma once

// For VornEventMonitorManager only.

#include "runtime/platform/ModuleLoader.h"
#include "runtime/support/ModuleData.h"

#include <string>

namespace VornMonitor {

// A shared library that brings monitors, and its module object. Unloaded by the
// destructor, when nothing of its making lives any more. Exceptions that leave
// these functions are of our own making.
class MonitorLibrary {
public:
    // Loads the library `name` of the folder; an empty folder stands for that
    // of the core module. Throws VornException when there is none, it cannot be
    // loaded, or it has no module object.
    MonitorLibrary(const std::string& folder, const std::string& name);
    MonitorLibrary(const MonitorLibrary&) = delete;
    MonitorLibrary& operator=(const MonitorLibrary&) = delete;

    const std::string& getName() const { return name_; }

    // Throws VornException when the module does.
    void attach();
    // Throws nothing; failures are logged at level 2. Also after a failed
    // attach(), of which something may be left.
    void detach();
    // The library stays in the process.
    void keepLoaded() { loader_.keep(); }

private:
    const std::string name_;
    VornPlatform::ModuleLoader loader_;
    VornSupport::ModuleData* module_ = nullptr;  // the library's
};

}  // namespace VornMonitor
