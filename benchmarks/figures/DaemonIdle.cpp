#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/Servers.h"

namespace RuvoBench {
namespace {

constexpr double kKiBPerMiB = 1024;

template <typename Server, typename... Arguments>
double idleMiB(const Settings& settings, const Arguments&... arguments) {
    const Server server(settings, arguments...);
    return residentKiB(server.pid()) / kKiBPerMiB;
}

void measure(const Settings& settings, const FigureSink& sink) {
    const std::vector<std::string> ping{"ping", "1", "1"};
    sink(evaluate({.name = "daemon.idle.memory",
                   .unit = "MiB",
                   .against = "bare server",
                   .rule = Rule::ValueAtMost,
                   .limit = 12},
                  measureRounds(settings.rounds, [&] { return idleMiB<Daemon>(settings); },
                                [&] { return idleMiB<BareServer>(settings, ping); })));
}

const FigureFamily family("daemon.idle", "resident memory of the daemon without clients",
                          measure);

}  // namespace
}  // namespace RuvoBench
