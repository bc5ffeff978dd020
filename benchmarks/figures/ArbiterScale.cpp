#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/Locking.h"
#include "benchmarks/harness/PingPong.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Requests.h"
#include "benchmarks/harness/Servers.h"

#include <deque>

namespace RuvoBench {
namespace {

constexpr std::size_t kClients = 64;

// What `rate` comes to with all processors, as a multiple of what it comes to
// with one, which server and clients share.
template <class Rate>
double gain(pid_t server, const Rate& rate) {
    useServerProcessor(server);
    const double one = [&rate] {
        const Pinned pinned(serverProcessor());
        return rate();
    }();
    useAllProcessors(server);
    return rate() / one;
}

// Every client has a path of its own, so that nothing but the arbiter itself can
// be in its way.
void measure(const Settings& settings, const FigureSink& sink) {
    const Daemon daemon(settings);
    const std::string request = batchOf(lockRequest("bench:scale:00", 0), 1);
    const BareServer server(settings,
                            {"ping", std::to_string(request.size()), std::to_string(kResultBytes)});
    std::deque<LockClient> clients;
    std::deque<Fd> bareClients;
    std::vector<int> bareSockets;
    for (std::size_t i = 0; i < kClients; ++i) {
        clients.emplace_back(daemon.port(), "bench:scale:" + std::to_string(i));
        bareClients.push_back(connectToLoopback(server.port()));
        bareSockets.push_back(bareClients.back().get());
    }
    const auto ours = [&] {
        return gain(daemon.pid(), [&] { return pairRate(clients, settings.slice()); });
    };
    const auto bare = [&] {
        return gain(server.pid(), [&] {
            return roundTripRate(bareSockets, request, kResultBytes, settings.slice());
        });
    };
    sink(evaluate({.name = "arbiter.scale",
                   .unit = "times",
                   .against = "bare ping-pong",
                   .rule = Rule::RatioAtLeast,
                   .limit = 0.8},
                  measureRounds(settings.rounds, ours, bare)));
}

const FigureFamily family("arbiter.scale", "64 clients on 64 paths: all processors beside one",
                          measure);

}  // namespace
}  // namespace RuvoBench
