#include "benchmarks/figures/TaskFigures.h"
#include "benchmarks/harness/Conversation.h"
#include "benchmarks/harness/Figure.h"

#include <chrono>
#include <stdexcept>
#include <thread>

namespace RuvoBench {
namespace {

constexpr std::size_t kFew = 10;
constexpr std::size_t kMany = 100'000;
constexpr double kMostProcessorMs = 0.1;  // for each second
// The daemon looks at the clock every five seconds: once at least in this time.
constexpr std::chrono::seconds kQuiet(6);

// When it answers, the daemon has read all of its tasks back.
void awaitTasks(Conversation& conversation) {
    if (conversation.ask(taskLookupRequest("task5")) < 0) {
        throw std::runtime_error("a daemon has not read its tasks back");
    }
}

// Of the whole daemon, for each second in which nobody asks it anything.
double quietProcessorMs(pid_t daemon) {
    const double before = processorSeconds(daemon);
    std::this_thread::sleep_for(kQuiet);
    return (processorSeconds(daemon) - before) * 1e3 / static_cast<double>(kQuiet.count());
}

// The daemon with many tasks beside the daemon with few, with one client each.
void measure(const Settings& settings, const FigureSink& sink) {
    const TaskDaemon many(settings, kMany);
    const TaskDaemon few(settings, kFew);
    Conversation toMany(many.port());
    Conversation toFew(few.port());
    awaitTasks(toMany);
    awaitTasks(toFew);
    if (settings.wants("task.waiting.processor")) {
        sink(evaluate({.name = "task.waiting.processor",
                       .unit = "ms/s",
                       .against = "",
                       .rule = Rule::ValueAtMost,
                       .limit = kMostProcessorMs},
                      {.ours = {quietProcessorMs(many.pid())}, .bare = {}}));
    }
    if (settings.wants("task.waiting.threads")) {
        sink(evaluate({.name = "task.waiting.threads",
                       .unit = "threads",
                       .against = "10 tasks",
                       .rule = Rule::RatioAtMost,
                       .limit = 1},
                      {.ours = {threadsOf(many.pid())}, .bare = {threadsOf(few.pid())}}));
    }
}

const FigureFamily family("task.waiting", "what 100,000 tasks cost while they wait", measure);

}  // namespace
}  // namespace RuvoBench
