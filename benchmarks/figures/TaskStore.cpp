#include "benchmarks/figures/TaskFigures.h"
#include "benchmarks/harness/Conversation.h"
#include "benchmarks/harness/Fd.h"
#include "benchmarks/harness/Figure.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

namespace RuvoBench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kTasks = 10'000;
constexpr std::int64_t kFarOff = 2'100'000'000;

// Changes a second for the time of a slice.
template <typename Change>
double rateOf(std::chrono::milliseconds slice, Change change) {
    const auto begin = Clock::now();
    int changes = 0;
    while (Clock::now() - begin < slice) {
        change();
        ++changes;
    }
    return changes / std::chrono::duration<double>(Clock::now() - begin).count();
}

// Nothing but that, all of it needed for a file that is whole after a power cut.
void writeFlushRename(const std::string& content, const std::string& fresh,
                      const std::string& current) {
    const Fd file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    const auto size = static_cast<ssize_t>(content.size());
    if (::write(file.get(), content.data(), content.size()) != size ||
        ::fdatasync(file.get()) != 0 || ::rename(fresh.c_str(), current.c_str()) != 0) {
        throw std::runtime_error("cannot replace a file");
    }
}

void measure(const Settings& settings, const FigureSink& sink) {
    const TaskDaemon daemon(settings, kTasks);
    Conversation conversation(daemon.port());
    const std::string schedule = scheduleRequest("one more", "true", "", kFarOff);
    const std::string content(daemon.storeBytes(), 'x');
    const TemporaryFolder folder;
    // Two changes each: a task that comes and goes.
    const auto ours = [&] {
        return 2 * rateOf(settings.slice(), [&] {
                   const std::int32_t task = conversation.ask(schedule);
                   conversation.expect(cancelRequest(task), task);
               });
    };
    const auto bare = [&] {
        return rateOf(settings.slice(), [&] {
            writeFlushRename(content, folder.path("fresh"), folder.path("current"));
        });
    };
    sink(evaluate({.name = "task.store",
                   .unit = "1/s",
                   .against = "write, flush, rename",
                   .rule = Rule::RatioAtLeast,
                   .limit = 0.6},
                  measureRounds(settings.rounds, ours, bare)));
}

const FigureFamily family("task.store", "scheduling and cancelling beside 10,000 tasks", measure);

}  // namespace
}  // namespace RuvoBench
