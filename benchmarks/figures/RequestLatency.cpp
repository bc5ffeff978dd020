#include "benchmarks/figures/RequestFigures.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/PingPong.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Requests.h"

namespace RuvoBench {
namespace {

void measure(const Settings& settings, const FigureSink& sink) {
    const ProgressClients clients(settings, 1);
    for (const auto& placement : placements()) {
        const std::string name = std::string("request.latency.") + placement.name;
        if (!settings.wants(name)) continue;
        const Pinned pinned(placement.load);
        const auto p50 = [&](int socket) {
            return latencyP50(socket, clients.batch(), kResultBytes, settings.slice());
        };
        const Rounds rounds =
            measureRounds(settings.rounds, [&] { return p50(clients.ours().front()); },
                          [&] { return p50(clients.bare().front()); });
        sink(evaluate({.name = name,
                       .unit = "us",
                       .against = "bare ping-pong",
                       .rule = Rule::RatioAtMost,
                       .limit = 1.25},
                      rounds));
    }
}

const FigureFamily family("request.latency", "one request on an open conversation, p50", measure);

}  // namespace
}  // namespace RuvoBench
