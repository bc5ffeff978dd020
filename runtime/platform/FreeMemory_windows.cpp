#include "runtime/platform/FreeMemory.h"

#include <malloc.h>

namespace VornPlatform {

void giveFreeMemoryBack() { ::_heapmin(); }

}  // namespace VornPlatform
