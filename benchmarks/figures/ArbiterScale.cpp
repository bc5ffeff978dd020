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

// How many times the work of one client all of them do together.
double timesAsMuch(double all, double one) { return all / one; }

// Every client has a path of its own, so that nothing but the arbiter itself can
// be in its way. Servers and clients may use every processor.
void measure(const Settings& settings, const FigureSink& sink) {
    const Daemon daemon(settings);
    const std::string request = batchOf(lockRequest("bench:scale:00", 0), 1);
    const BareServer server(settings,
                            {"ping", std::to_string(request.size()), std::to_string(kResultBytes)});
    useAllProcessors(daemon.pid());
    useAllProcessors(server.pid());

    std::deque<LockClient> one;
    std::deque<LockClient> all;
    std::deque<Fd> bareClients;
    std::vector<int> bareSockets;
    one.emplace_back(daemon.port(), "bench:scale:one");
    for (std::size_t i = 0; i < kClients; ++i) {
        all.emplace_back(daemon.port(), "bench:scale:" + std::to_string(i));
        bareClients.push_back(connectToLoopback(server.port()));
        bareSockets.push_back(bareClients.back().get());
    }
    const auto ours = [&] {
        return timesAsMuch(pairRate(all, settings.slice()), pairRate(one, settings.slice()));
    };
    const auto bare = [&] {
        const auto rate = [&](const std::vector<int>& sockets) {
            return roundTripRate(sockets, request, kResultBytes, settings.slice());
        };
        return timesAsMuch(rate(bareSockets), rate({bareSockets.front()}));
    };
    sink(evaluate({.name = "arbiter.scale",
                   .unit = "times",
                   .against = "bare ping-pong",
                   .rule = Rule::RatioAtLeast,
                   .limit = 0.8},
                  measureRounds(settings.rounds, ours, bare)));
}

const FigureFamily family("arbiter.scale", "64 clients on 64 paths, beside one", measure);

}  // namespace
}  // namespace RuvoBench
