#pragma once

#include "runtime/support/VornObjectBase.h"

// What the test plug-in, a library that tests load at run time, exports under
// this name: a new object with count 0 of its own class PlugInTask, which
// derives from PlugInBase and reports its end in *destroyed.
inline constexpr const char* kMakePlugInObject = "makePlugInObject";
using MakePlugInObject = VornSupport::VornObjectBase*(bool* destroyed);
