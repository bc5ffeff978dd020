#include "client/ruvoctl/EndRequests.h"
#include "client/ruvoctl/Ruvoctl.h"
#include "runtime/platform/Environment.h"
#include "runtime/platform/ProgramSetup.h"
#include "runtime/platform/Signals.h"

#include <iostream>

namespace {

Ruvoctl::EndRequests requests;

void takeRequest(const VornPlatform::EndRequest& request) { requests.add(request); }

void catchInterrupts() {
    // Without it an interrupt ends the program as it ends any other.
    (void)VornPlatform::watchSignals({.end = takeRequest});
}

}  // namespace

int main(int argc, char** argv) {
    VornPlatform::prepareStandardStreams();
    Ruvoctl::Surroundings surroundings{std::cout, std::cerr, VornPlatform::getEnv,
                                       catchInterrupts, [] { return requests.any(); }};
    surroundings.nextRequest = [] { return requests.next(); };
    const int status = Ruvoctl::run(VornPlatform::programArguments(argc, argv), surroundings);
    VornPlatform::tellStopped();
    return status;
}
