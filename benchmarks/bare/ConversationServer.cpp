#include "benchmarks/bare/BareServers.h"
#include "runtime/net/VornServerSocket.h"
#include "runtime/support/VornException.h"

#include <string>
#include <thread>

namespace RuvoBench {
namespace {

constexpr int kAnswer = 1;

// What every request costs the daemon on the wire: a count, the number that every
// request begins with, the names of engine and command, one argument; the answer
// goes out before the next wait.
void converse(VornNet::VornConnection& connection) {
    std::string engine;
    std::string command;
    for (;;) {
        for (int left = connection.readUnsignedShort(); left > 0; --left) {
            connection.readUnsignedShort();
            connection.readString(engine);
            connection.readString(command);
            connection.readInt();
            connection.writeInt(kAnswer);
        }
    }
}

}  // namespace

void serveConversations() {
    VornNet::VornServerSocket server(0, 64, "127.0.0.1");
    announcePort(static_cast<std::uint16_t>(server.getPort()));
    for (;;) {
        const auto connection = server.waitForClient(true);
        std::thread([connection] {
            try {
                converse(*connection);
            } catch (const VornSupport::VornException&) {
                // The client has gone.
            }
        }).detach();
    }
}

}  // namespace RuvoBench
