// A module without a module object.

#include "runtime/platform/Export.h"
#include "runtime/support/ModuleData.h"

extern "C" VORN_EXPORT VornSupport::ModuleData* vornModuleData();
VornSupport::ModuleData* vornModuleData() { return nullptr; }
