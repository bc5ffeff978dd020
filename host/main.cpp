#include "host/HostCommandLine.h"
#include "host/HostModule.h"
#include "host/HostRunner.h"
#include "runtime/platform/ProgramSetup.h"

int main(int argc, char** argv) {
    using namespace RuvoHost;
    VornPlatform::prepareStandardStreams();
    const auto line = parseHostCommandLine(VornPlatform::programArguments(argc, argv), RUVO_VERSION);
    switch (line.action) {
        case HostAction::Exit:
            return leave(line);
        case HostAction::Install:
        case HostAction::Remove:
            complain("this build has no service integration: start it with \"run\"");
            return kFailure;
        default:
            break;
    }
    if (line.action == HostAction::Run) listenToSignals();

    std::string error;
    const RuvoHostApi* const module = loadHostModule(error);
    if (module == nullptr) {
        complain(error);
        return kFailure;
    }
    return line.action == HostAction::Run ? runService(*module, line.properties)
                                          : checkProperties(*module, line.properties);
}
