#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/Servers.h"

namespace RuvoBench {
namespace {

constexpr double kMostMs = 60;

// Starts and stops one of either kind in each round.
void measure(const Settings& settings, const FigureSink& sink) {
    Rounds starting;
    Rounds stopping;
    for (int round = 0; round < settings.rounds; ++round) {
        Daemon daemon(settings);
        starting.ours.push_back(daemon.startMs());
        stopping.ours.push_back(daemon.stop());
        BareServer bare(settings, {"ping", "1", "1"});
        starting.bare.push_back(bare.startMs());
        stopping.bare.push_back(bare.stop());
    }
    Figure figure{.name = "daemon.life.start",
                  .unit = "ms",
                  .against = "bare server",
                  .rule = Rule::ValueAtMost,
                  .limit = kMostMs};
    sink(evaluate(figure, starting));
    figure.name = "daemon.life.stop";
    sink(evaluate(figure, stopping));
}

const FigureFamily family("daemon.life", "from start to ready, and from the signal to the end",
                          measure);

}  // namespace
}  // namespace RuvoBench
