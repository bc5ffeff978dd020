#include "tests/scheduler/KillHard.h"

#include <signal.h>
#include <sys/types.h>

namespace TestSupport {

void killHard(VornPlatform::ProcessHandle& process) {
    ::kill(static_cast<pid_t>(process.processId()), SIGKILL);
}

}  // namespace TestSupport
