#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/Locking.h"
#include "benchmarks/harness/PingPong.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Requests.h"
#include "benchmarks/harness/Servers.h"

namespace RuvoBench {
namespace {

// Beside a lock and an unlock two requests that nothing is done for: what is left
// is the daemon's work on both, their two events included.
void measure(const Settings& settings, const FigureSink& sink) {
    const Daemon daemon(settings);
    LockClient locking(daemon.port(), "bench:round-trip");
    const BareServer server(settings, {"conversation"});
    const Fd bare = connectToLoopback(server.port());
    const std::string bareRequest = batchOf(getProgressRequest(1), 1);
    for (const auto& placement : placements()) {
        const std::string name = std::string("arbiter.round-trip.") + placement.name;
        if (!settings.wants(name)) continue;
        const Pinned pinned(placement.load);
        const Rounds rounds = measureRounds(
            settings.rounds, [&] { return pairP50(locking, settings.slice()); },
            [&] {
                return 2 * latencyP50(bare.get(), bareRequest, kResultBytes, settings.slice());
            });
        sink(evaluate({.name = name,
                       .unit = "us",
                       .against = "two bare requests",
                       .rule = Rule::RatioAtMost,
                       .limit = 1.25},
                      rounds));
    }
}

const FigureFamily family("arbiter.round-trip", "a lock and its unlock on one conversation, p50",
                          measure);

}  // namespace
}  // namespace RuvoBench
