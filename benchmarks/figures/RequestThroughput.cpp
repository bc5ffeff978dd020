#include "benchmarks/figures/RequestFigures.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/PingPong.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Requests.h"

namespace RuvoBench {
namespace {

constexpr std::size_t kClients[] = {1, 8, 64};

void measure(const Settings& settings, const FigureSink& sink) {
    for (const std::size_t count : kClients) {
        const std::string group = "request.throughput." + std::to_string(count) + "-clients";
        if (!settings.wants(group)) continue;
        const ProgressClients clients(settings, count);
        for (const auto& placement : placements()) {
            const std::string name = group + "." + placement.name;
            if (!settings.wants(name)) continue;
            const Pinned pinned(placement.load);
            const auto rate = [&](const std::vector<int>& sockets) {
                return roundTripRate(sockets, clients.batch(), kResultBytes, settings.slice());
            };
            const Rounds rounds =
                measureRounds(settings.rounds, [&] { return rate(clients.ours()); },
                              [&] { return rate(clients.bare()); });
            sink(evaluate({.name = name,
                           .unit = "/s",
                           .against = "bare ping-pong",
                           .rule = Rule::RatioAtLeast,
                           .limit = 0.80},
                          rounds));
        }
    }
}

const FigureFamily family("request.throughput", "requests a second of all clients together",
                          measure);

}  // namespace
}  // namespace RuvoBench
