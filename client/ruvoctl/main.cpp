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
    if (const auto error = VornPlatform::watchSignals({.end = takeRequest})) {
        throw Ruvoctl::Failure(Ruvoctl::kRefused,
                               "cannot watch for signals: " + error.text());
    }
}

}  // namespace

int main(int argc, char** argv) {
    VornPlatform::prepareStandardStreams();
    Ruvoctl::Surroundings surroundings{std::cout, std::cerr, VornPlatform::getEnv,
                                       catchInterrupts, [] { return requests.any(); }};
    surroundings.nextRequest = [] { return requests.next(); };
    surroundings.settleRequests = VornPlatform::settleSignals;
    const int status = Ruvoctl::run(VornPlatform::programArguments(argc, argv), surroundings);
    VornPlatform::tellStopped();
    return status;
}
