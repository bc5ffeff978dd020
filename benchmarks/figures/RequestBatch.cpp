#include "benchmarks/figures/RequestFigures.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/PingPong.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Requests.h"

namespace RuvoBench {
namespace {

constexpr std::uint16_t kBatch = 16;

void measure(const Settings& settings, const FigureSink& sink) {
    const ProgressClients clients(settings, 1);
    const std::string batch = batchOf(clients.request(), kBatch);
    for (const auto& placement : placements()) {
        const std::string name = std::string("request.batch.") + placement.name;
        if (!settings.wants(name)) continue;
        const Pinned pinned(placement.load);
        const auto inBatches = [&] {
            return kBatch *
                   roundTripRate(clients.ours(), batch, kBatch * kResultBytes, settings.slice());
        };
        const auto singly = [&] {
            return roundTripRate(clients.ours(), clients.batch(), kResultBytes, settings.slice());
        };
        sink(evaluate({.name = name,
                       .unit = "/s",
                       .against = "the daemon, singly",
                       .rule = Rule::RatioAtLeast,
                       .limit = 5},
                      measureRounds(settings.rounds, inBatches, singly)));
    }
}

const FigureFamily family("request.batch", "requests a second, sixteen in a batch", measure);

}  // namespace
}  // namespace RuvoBench
