#include "benchmarks/figures/TaskFigures.h"
#include "benchmarks/harness/Conversation.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/Placement.h"

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <vector>

namespace RuvoBench {
namespace {

// Of which 500 ms are for the pauses that a run makes on purpose.
constexpr double kMostMs = 1500;
constexpr std::int64_t kLeadSeconds = 3;
constexpr auto kPatience = std::chrono::seconds(60);

// When the file was made, in milliseconds since 1970; 0 when it is not there.
double madeAt(const std::string& file) {
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0) return 0;
    return static_cast<double>(status.st_mtim.tv_sec) * 1e3 +
           static_cast<double>(status.st_mtim.tv_nsec) / 1e6;
}

// Each task's command makes a file by being started; how long after the task's time
// that was, in order.
std::vector<double> latenesses(const TaskDaemon& daemon, int tasks) {
    Conversation conversation(daemon.port());
    const TemporaryFolder marks(TemporaryFolder::Place::Memory);
    const std::string mark = marks.path("started-");
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
        late.push_back(made - static_cast<double>(due) * 1e3);
    }
    // The next ones take the same names.
    const auto isGone = [&] {
        return conversation.ask(taskLookupRequest("late" + std::to_string(tasks - 1))) < 0;
    };
    while (!isGone() && std::chrono::steady_clock::now() < end) continue;
    std::sort(late.begin(), late.end());
    return late;
}

// Starts the interpreter on the batch files from `first` on, every `step`th.
void startBatches(const std::string& interpreter, const TemporaryFolder& folder,
                  const TemporaryFolder& marks, int first, int step, int tasks,
                  std::vector<pid_t>& processes) {
    for (int i = first; i < tasks; i += step) {
        std::string file = folder.path("batch-" + std::to_string(i));
        std::ofstream(file) << "\n:  >" << marks.path("started-" + std::to_string(i))
                            << " 2>&1 \r\n\n";
        std::string name = "cmd";
        std::string option = "/c";
        char* const arguments[] = {name.data(), option.data(), file.data(), nullptr};
        auto& process = processes[static_cast<std::size_t>(i)];
        if (::posix_spawn(&process, interpreter.c_str(), nullptr, nullptr, arguments, environ) !=
            0) {
            process = -1;
        }
    }
}

// The same commands, started by one thread a processor that does nothing else:
// how late each was, counted from the start of the first.
std::vector<double> bareLatenesses(const Settings& settings, int tasks) {
    const TemporaryFolder folder;
    const TemporaryFolder marks(TemporaryFolder::Place::Memory);
    const std::string interpreter = settings.programs + "/cmd";
    std::vector<pid_t> processes(static_cast<std::size_t>(tasks));
    const double begin =
        static_cast<double>(std::chrono::duration_cast<std::chrono::microseconds>(
                                std::chrono::system_clock::now().time_since_epoch())
                                .count()) /
        1e3;
    const int threads = static_cast<int>(placements().size());
    std::vector<std::thread> starters;
    for (int i = 0; i < threads; ++i) {
        starters.emplace_back(
            [&, i] { startBatches(interpreter, folder, marks, i, threads, tasks, processes); });
    }
    for (std::thread& starter : starters) starter.join();
    std::vector<double> late;
    for (std::size_t i = 0; i < processes.size(); ++i) {
        int status = -1;
        if (processes[i] > 0) ::waitpid(processes[i], &status, 0);
        if (status != 0) throw std::runtime_error("a batch file failed");
        late.push_back(madeAt(marks.path("started-" + std::to_string(i))) - begin);
    }
    std::sort(late.begin(), late.end());
    return late;
}

void measure(const Settings& settings, const FigureSink& sink) {
    for (const int tasks : {1, 100, 1000}) {
        const std::string name = "task.lateness." + std::to_string(tasks);
        if (!settings.wants(name) || (settings.quick && tasks > 100)) continue;
        // The daemon first: a file system may take long to make a file soon after a
        // thousand have been deleted, as those of the other side are.
        const TaskDaemon daemon(settings, 0);
        useAllProcessors(daemon.pid());
        const auto late = latenesses(daemon, tasks);
        const auto bare = bareLatenesses(settings, tasks);
        Figure figure{.name = name + ".p50",
                      .unit = "ms",
                      .against = "cmd /c FILE",
                      .rule = Rule::ValueAtMost,
                      .limit = kMostMs};
        sink(evaluate(figure, {.ours = {late[late.size() / 2]}, .bare = {bare[bare.size() / 2]}}));
        figure.name = name + ".p99";
        const std::size_t p99 = late.size() * 99 / 100;
        sink(evaluate(figure, {.ours = {late[p99]}, .bare = {bare[p99]}}));
    }
}

const FigureFamily family("task.lateness",
                          "from the time of a task to the start of its command",
                          measure);

}  // namespace
}  // namespace RuvoBench
