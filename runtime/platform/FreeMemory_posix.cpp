#include "runtime/platform/FreeMemory.h"

#include <cstdlib>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace VornPlatform {

void giveFreeMemoryBack() {
#if defined(__GLIBC__)
    ::malloc_trim(0);
#endif
}

}  // namespace VornPlatform
