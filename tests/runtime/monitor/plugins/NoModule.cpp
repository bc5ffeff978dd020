// A library, but not a module.

#include "runtime/platform/Export.h"

extern "C" VORN_EXPORT int pluginNothing();
int pluginNothing() { return 0; }
