#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Conversation.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/Listeners.h"
#include "benchmarks/harness/Locking.h"
#include "benchmarks/harness/PingPong.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Requests.h"
#include "benchmarks/harness/Servers.h"

namespace RuvoBench {
namespace {

// Beside a lock and an unlock two requests that nothing is done for: what is left
// is the daemon's work on both; with a listener, their two events included, which
// it is registered for none of.
void measure(const Settings& settings, const FigureSink& sink) {
    const Daemon daemon(settings);
    LockClient locking(daemon.port(), "bench:round-trip");
    Conversation listener(daemon.port());
    const Listeners place(1);
    const BareServer server(settings, {"conversation"});
    const Fd bare = connectToLoopback(server.port());
    const std::string bareRequest = batchOf(getProgressRequest(1), 1);
    for (const bool heard : {false, true}) {
        if (heard) listener.expect(registerRequest("^nothing$", place.remoteName(0), 1), 0);
        for (const auto& placement : placements()) {
            const std::string name =
                std::string("arbiter.round-trip.") + (heard ? "heard." : "") + placement.name;
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
                           .limit = heard ? 1.5 : 1.25},
                          rounds));
        }
    }
}

const FigureFamily family("arbiter.round-trip", "a lock and its unlock on one conversation, p50",
                          measure);

}  // namespace
}  // namespace RuvoBench
