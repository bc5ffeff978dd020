#include "benchmarks/bare/BareServers.h"
#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Requests.h"

#include <string>
#include <thread>
#include <utility>

namespace RuvoBench {
namespace {

constexpr std::size_t kMostRequest = 1024;

bool greet(int client) {
    char opening[kOpening.size()];
    if (!receiveOrEnd(client, opening, sizeof opening)) return false;
    sendAll(client, kAdmitted);
    return true;
}

void serveClient(int client, std::size_t request, std::string_view answer, bool greeting) {
    char buffer[kMostRequest];
    if (greeting && !greet(client)) return;
    while (receiveOrEnd(client, buffer, request)) sendAll(client, answer);
}

}  // namespace

void servePing(std::size_t request, std::size_t answer, bool greeting) {
    std::uint16_t port = 0;
    const Fd listener = listenOnLoopback(port);
    const std::string bytes(answer, 'a');
    announcePort(port);
    for (;;) {
        std::thread([client = acceptClient(listener.get(), -1), request, &bytes, greeting] {
            serveClient(client.get(), request, bytes, greeting);
        }).detach();
    }
}

}  // namespace RuvoBench
