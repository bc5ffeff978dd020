#include "benchmarks/figures/TaskFigures.h"
#include "benchmarks/harness/Conversation.h"
#include "benchmarks/harness/Figure.h"

#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

namespace RuvoBench {
namespace {

constexpr double kPausesMs = 500;  // between a task's time and its start, on purpose
constexpr double kMostMs = 1000;   // beyond them
constexpr std::int64_t kLeadSeconds = 3;
constexpr auto kPatience = std::chrono::seconds(60);

// When the file was made, in milliseconds since 1970; 0 when it is not there.
double madeAt(const std::string& file) {
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0) return 0;
    return static_cast<double>(status.st_mtim.tv_sec) * 1e3 +
           static_cast<double>(status.st_mtim.tv_nsec) / 1e6;
}

// Each task's command makes a file by being started; how late that was, in order.
std::vector<double> latenesses(const TaskDaemon& daemon, int tasks) {
    Conversation conversation(daemon.port());
    const std::string mark = daemon.path("started-" + std::to_string(tasks) + "-");
    const std::int64_t due = ::time(nullptr) + kLeadSeconds + tasks / 200;
    for (int i = 0; i < tasks; ++i) {
        const std::string name = "late" + std::to_string(i);
        const std::string request = scheduleRequest(name, ":", mark + std::to_string(i), due);
        if (conversation.ask(request) < 0) throw std::runtime_error("a task was refused");
    }
    if (::time(nullptr) >= due) throw std::runtime_error("scheduling took too long");
    const auto end = std::chrono::steady_clock::now() + kPatience;
    std::vector<double> late;
    for (int i = 0; i < tasks; ++i) {
        double made = 0;
        while ((made = madeAt(mark + std::to_string(i))) == 0) {
            if (std::chrono::steady_clock::now() > end) {
                throw std::runtime_error("a task was not started");
            }
            std::this_thread::sleep_until(std::chrono::steady_clock::now() +
                                          std::chrono::milliseconds(5));
        }
        late.push_back(made - static_cast<double>(due) * 1e3 - kPausesMs);
    }
    // The next ones take the same names.
    const auto isGone = [&] {
        return conversation.ask(taskLookupRequest("late" + std::to_string(tasks - 1))) < 0;
    };
    while (!isGone() && std::chrono::steady_clock::now() < end) continue;
    std::sort(late.begin(), late.end());
    return late;
}

void measure(const Settings& settings, const FigureSink& sink) {
    for (const int tasks : {1, 100, 1000}) {
        const std::string name = "task.lateness." + std::to_string(tasks);
        if (!settings.wants(name) || (settings.quick && tasks > 100)) continue;
        const TaskDaemon daemon(settings, 0);
        const auto late = latenesses(daemon, tasks);
        Figure figure{.name = name + ".p50",
                      .unit = "ms",
                      .against = "",
                      .rule = Rule::ValueAtMost,
                      .limit = kMostMs};
        sink(evaluate(figure, {.ours = {late[late.size() / 2]}, .bare = {}}));
        figure.name = name + ".p99";
        sink(evaluate(figure, {.ours = {late[late.size() * 99 / 100]}, .bare = {}}));
    }
}

const FigureFamily family("task.lateness",
                          "from the end of the ordered pauses to the start of a task's command",
                          measure);

}  // namespace
}  // namespace RuvoBench
