#include "benchmarks/figures/TaskFigures.h"
#include "benchmarks/harness/Conversation.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/PingPong.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Requests.h"

#include <stdexcept>

namespace RuvoBench {
namespace {

constexpr std::size_t kFew = 10;
constexpr std::size_t kMany = 100'000;
constexpr const char* kTask = "task5";

// The daemon with many tasks beside the daemon with few.
void measure(const Settings& settings, const FigureSink& sink) {
    const TaskDaemon many(settings, kMany);
    const TaskDaemon few(settings, kFew);
    Conversation toMany(many.port());
    Conversation toFew(few.port());
    const std::string lookup = taskLookupRequest(kTask);
    const std::int32_t ofMany = toMany.ask(lookup);
    const std::int32_t ofFew = toFew.ask(lookup);
    if (ofMany < 0 || ofFew < 0) throw std::runtime_error("a daemon has not read its tasks back");
    const Pinned pinned(placements().front().load);
    const auto compare = [&](const char* name, const std::string& askMany,
                             const std::string& askFew) {
        if (!settings.wants(name)) return;
        const auto p50 = [&](const Conversation& conversation, const std::string& request) {
            return latencyP50(conversation.socket(), batchOf(request, 1), kResultBytes,
                              settings.slice());
        };
        sink(evaluate({.name = name,
                       .unit = "us",
                       .against = "10 tasks",
                       .rule = Rule::RatioAtMost,
                       .limit = 2},
                      measureRounds(
                          settings.rounds, [&] { return p50(toMany, askMany); },
                          [&] { return p50(toFew, askFew); })));
    };
    compare("task.lookup.state", taskStateRequest(ofMany), taskStateRequest(ofFew));
    compare("task.lookup.name", lookup, lookup);
    if (settings.wants("task.lookup.memory")) {
        const double each = (residentKiB(many.pid()) - residentKiB(few.pid())) /
                            static_cast<double>(kMany - kFew);
        sink(evaluate({.name = "task.lookup.memory",
                       .unit = "KiB",
                       .against = "",
                       .rule = Rule::ValueAtMost,
                       .limit = 1.5},
                      {.ours = {each}, .bare = {}}));
    }
}

const FigureFamily family("task.lookup", "finding one of 100,000 tasks, and of ten", measure);

}  // namespace
}  // namespace RuvoBench
