#include "client/ruvoctl/Ruvoctl.h"
#include "runtime/platform/Environment.h"
#include "runtime/platform/ProgramSetup.h"
#include "runtime/platform/Signals.h"

#include <atomic>
#include <iostream>

namespace {

std::atomic<bool> interrupted{false};

void interrupt() { interrupted.store(true); }

void catchInterrupts() {
    // Without it an interrupt ends the program as it ends any other.
    (void)VornPlatform::watchSignals({.stop = interrupt, .reload = interrupt});
}

}  // namespace

int main(int argc, char** argv) {
    VornPlatform::prepareStandardStreams();
    Ruvoctl::Surroundings surroundings{std::cout, std::cerr, VornPlatform::getEnv,
                                       catchInterrupts, [] { return interrupted.load(); }};
    const int status = Ruvoctl::run(VornPlatform::programArguments(argc, argv), surroundings);
    VornPlatform::tellStopped();
    return status;
}
