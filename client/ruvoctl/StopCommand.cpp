#include "client/ruvoctl/Commands.h"
#include "client/ruvoctl/Output.h"

namespace Ruvoctl {

void addStopCommand(CLI::App& app, Session& session) {
    CLI::App* const command = app.add_subcommand("stop", "Stop the daemon");
    command->footer(
        "Waits until the daemon closes the connection; over UDP it only sends.\n\n"
        "Example:\n  ruvoctl stop");
    command->callback([&session] {
        session.command = [&session] {
            auto client = session.connect();
            client.stopDaemon();
            session.out() << (session.json ? textOf({{"stopping", true}}) : "the daemon stops")
                          << '\n';
            return kDone;
        };
    });
}

}  // namespace Ruvoctl
