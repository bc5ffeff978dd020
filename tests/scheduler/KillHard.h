#pragma once

#include "runtime/platform/Process.h"

namespace TestSupport {

// Ends a process as the system does it that has run out of memory: it learns
// nothing of it. POSIX: SIGKILL.
void killHard(VornPlatform::ProcessHandle& process);

}  // namespace TestSupport
