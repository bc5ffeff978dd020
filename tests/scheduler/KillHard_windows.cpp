#include "tests/scheduler/KillHard.h"

namespace TestSupport {

void killHard(VornPlatform::ProcessHandle& process) { process.terminate(9); }

}  // namespace TestSupport
