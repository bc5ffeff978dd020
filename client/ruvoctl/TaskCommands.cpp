#include "client/RuvoTasks.h"
#include "client/ruvoctl/Commands.h"
#include "client/ruvoctl/FileBytes.h"
#include "client/ruvoctl/Numbers.h"
#include "client/ruvoctl/Output.h"
#include "client/ruvoctl/TaskFollowing.h"
#include "client/ruvoctl/TaskText.h"
#include "client/ruvoctl/TaskTimes.h"

#include <chrono>
#include <fstream>
#include <limits>
#include <memory>
#include <vector>

namespace Ruvoctl {
namespace {

using Ruvo::RuvoFrequency;
using Ruvo::RuvoTasks;
using std::chrono::milliseconds;

struct TaskOptions {
    std::string task;  // a name, or a handle
    bool isHandle = false;
    bool isDaily = false, isWeekly = false, isMonthly = false, isOnce = false, isSoon = false;
    std::string at;
    TypedCommand command;
    std::string file;
    milliseconds patience{0};
    std::int64_t count = 0;

    // Made of these before connecting.
    Ruvo::RuvoTaskPlan plan{};
    Ruvo::RuvoTaskCommand batchCommand{};
    std::string bytes{};
};
using Options = std::shared_ptr<TaskOptions>;

constexpr std::int64_t kSoonSeconds = 121;  // the daemon's, whatever it is told

// ---- tasks and times ---------------------------------------------------------------

// The next full second: who says "in one second" must not find it past already.
std::int64_t nowSeconds() {
    return std::chrono::ceil<std::chrono::seconds>(std::chrono::system_clock::now())
        .time_since_epoch()
        .count();
}

std::int32_t handleOf(const std::string& text) {
    return static_cast<std::int32_t>(
        numberOf("a handle", text, std::numeric_limits<std::int32_t>::min(),
                 std::numeric_limits<std::int32_t>::max()));
}

std::int32_t taskOf(RuvoTasks& tasks, const TaskOptions& options) {
    if (options.isHandle) return handleOf(options.task);
    if (const auto handle = tasks.lookup(options.task)) return *handle;
    throw Failure(kRefused, "there is no task named \"" + shown(options.task) + "\"");
}

Ruvo::RuvoTaskPlan planOf(const TaskOptions& options) {
    Ruvo::RuvoTaskPlan plan;
    plan.frequency = options.isDaily     ? RuvoFrequency::Daily
                     : options.isWeekly  ? RuvoFrequency::Weekly
                     : options.isMonthly ? RuvoFrequency::Monthly
                     : options.isSoon    ? RuvoFrequency::Soon
                                         : RuvoFrequency::Once;
    const std::int64_t now = nowSeconds();
    if (options.at.empty() && !options.isSoon) throw UsageError("--at TIME is needed, or --soon");
    if (!options.at.empty() && options.isSoon) {
        throw UsageError("--soon is a time itself, 121 seconds from now: leave out it or --at");
    }
    const std::int64_t first =
        options.at.empty() ? now + kSoonSeconds : momentOf(options.at, now);
    if (first < kFirstMoment || first > kLastMoment) {
        throw UsageError("tasks run between " + utcText(kFirstMoment) + " and " +
                         utcText(kLastMoment) + ", not at " + utcText(first));
    }
    plan.time = utcOf(first);
    return plan;
}

// Null, and "none", for a moment that there is not.
Json timeJson(const std::optional<std::int64_t>& moment) {
    if (!moment) return {};
    return {{"utc", utcText(*moment)}, {"local", localText(*moment)}};
}

std::string timeText(const std::optional<std::int64_t>& moment, const char* none) {
    return moment ? bothTexts(*moment) : none;
}

constexpr const char* kPast = "a time before 1970";

// "1970-..." is what the daemon says of a task that never ran, blanks of a time
// before that.
std::optional<std::int64_t> lastRunOf(const std::string& text) {
    if (text.size() < 19 || text.front() == ' ') return std::nullopt;
    const std::int64_t moment = momentOf(text.substr(0, 10) + 'T' + text.substr(11, 8) + 'Z', 0);
    if (moment == 0) return std::nullopt;
    return moment;
}

void show(Session& session, const Json& json, const std::string& text) {
    session.out() << (session.json ? textOf(json) : text) << '\n';
}

// ---- the frame of a command ----------------------------------------------------------

// What a command works with.
struct Work {
    Session& session;
    Ruvo::RuvoClient& client;
    RuvoTasks& tasks;
    const TaskOptions& options;
};

// `prepare` refuses what makes no sense before anybody connects.
using Prepare = void (*)(const Session&, TaskOptions&);
void nothing(const Session&, TaskOptions&) {}

template <typename Body>
CLI::App* add(CLI::App& parent, Session& session, const char* name, const char* about,
              const Options& options, Body body, Prepare prepare = nothing) {
    CLI::App* const command = parent.add_subcommand(name, about);
    command->callback([&session, options, body, prepare] {
        session.command = [&session, options, body, prepare] {
            if (options->isHandle) (void)handleOf(options->task);
            prepare(session, *options);
            auto client = session.connect();
            RuvoTasks tasks(client);
            return body(Work{session, client, tasks, *options});
        };
    });
    return command;
}

template <typename Body>
CLI::App* addQuery(CLI::App& parent, Session& session, const char* name, const char* about,
                   Body body) {
    auto options = std::make_shared<TaskOptions>();
    CLI::App* const command = add(parent, session, name, about, options, [body](const Work& work) {
        body(work, taskOf(work.tasks, work.options));
        return kDone;
    });
    command->add_option("task", options->task, "Its name")->required();
    command->add_flag("--handle", options->isHandle, "TASK is the handle");
    command->footer(std::string("Example:\n  ruvoctl task ") + name + " nightly-backup");
    return command;
}

// ---- scheduling ----------------------------------------------------------------------

void addPlan(CLI::App* command, const Options& options) {
    CLI::Option_group* const how = command->add_option_group("When");
    how->require_option(0, 1);
    how->add_flag("--once", options->isOnce, "One run; the default");
    how->add_flag("--daily", options->isDaily, "Every 24 hours");
    how->add_flag("--weekly", options->isWeekly, "Every 7 days");
    how->add_flag("--monthly", options->isMonthly, "Every 28 days");
    how->add_flag("--soon", options->isSoon, "One run, in about two minutes; without --at");
    command->add_option("--at", options->at,
                        "The first run: 2026-11-22T02:30, 02:30 or +15m; local time, or UTC with "
                        "a Z behind it");
}

// What the daemon has made of the plan. Of a task that is gone already, because its
// run is over or somebody cancelled it, the plan as it was sent: it was scheduled.
Ruvo::RuvoTaskPlan scheduledPlan(const Work& work, std::int32_t task) {
    try {
        return work.tasks.nextRun(task);
    } catch (const Ruvo::RuvoClientError& error) {
        if (error.problem() != Ruvo::RuvoProblem::Declined) throw;
        return work.options.plan;
    }
}

void showScheduled(const Work& work, std::int32_t task) {
    const Ruvo::RuvoTaskPlan plan = scheduledPlan(work, task);
    const auto next = keptMoment(plan.time);
    const Json json = {{"name", work.options.task}, {"handle", task}, {"nextRun", timeJson(next)},
                       {"frequency", frequencyText(plan.frequency)}};
    if (next && *next < nowSeconds()) {
        work.session.surroundings.err << "ruvoctl: that time is past: the first run is in about "
                                         "two minutes"
                                      << std::endl;
    }
    show(work.session, json,
         "task " + shown(work.options.task) + " has handle " + std::to_string(task) +
             " and runs " + frequencyText(plan.frequency) + ", " + timeText(next, kPast));
}

void addSchedule(CLI::App& task, Session& session) {
    auto options = std::make_shared<TaskOptions>();
    CLI::App* const command =
        add(task, session, "schedule", "Have a command run at a time, once or again and again",
            options,
            [](const Work& work) {
                const TaskOptions& given = work.options;
                showScheduled(work,
                              work.tasks.schedule(given.task, given.batchCommand, given.plan));
                return kDone;
            },
            [](const Session& from, TaskOptions& given) {
                given.plan = planOf(given);
                given.command.words = commandWords(from, given.task);
                given.batchCommand = commandOf(given.command);
            });
    command->add_option("name", options->task, "A name that no other task has")->required();
    addPlan(command, options);
    command->add_option("--in", options->command.directory,
                        "The folder to run it in, as seen from here");
    command->add_option("--log", options->command.logFile,
                        "A file, as seen from here, that gets its output, anew at each run");
    command->add_flag("--shell", options->command.isShellText,
                      "PROGRAM and ARGS are a text for the command interpreter");
    command->add_option("command", options->command.words, "PROGRAM ARGS..., behind --")
        ->required();
    command->footer(
        "A time that is past becomes two minutes from now. Of a local time that the clocks show\n"
        "twice the first is taken; one that they leap over is as much later as they leap.\n"
        "The command runs as the user the daemon runs as; where the folder is not there, it\n"
        "runs in the daemon's all the same. --in and --log count from the folder you are in;\n"
        "PROGRAM is looked for where it runs: with a slash from --in, else along the daemon's\n"
        "PATH.\n\n"
        "Examples:\n"
        "  ruvoctl task schedule cleanup --daily --at 02:30 -- /usr/bin/find /tmp -mtime +7\n"
        "  ruvoctl task schedule report --at 2026-12-01T06:00Z --in /srv --log report.txt \\\n"
        "      --shell -- 'ls | wc -l'");
}

void addScheduleBlob(CLI::App& task, Session& session) {
    auto options = std::make_shared<TaskOptions>();
    CLI::App* const command =
        add(task, session, "schedule-blob", "Have bytes kept, and told of at a time", options,
            [](const Work& work) {
                const TaskOptions& given = work.options;
                showScheduled(work, work.tasks.scheduleBlob(given.task, given.bytes, given.plan));
                return kDone;
            },
            [](const Session&, TaskOptions& given) {
                given.plan = planOf(given);
                given.bytes = readFile(given.file);
            });
    command->add_option("name", options->task, "A name that no other task has")->required();
    command->add_option("file", options->file, "A file with the bytes")->required();
    addPlan(command, options);
    command->footer("Example:\n  ruvoctl task schedule-blob order order.xml --at +2h");
}

// ---- lists and queries ---------------------------------------------------------------

void addList(CLI::App& task, Session& session, const char* name, const char* about,
             std::vector<std::string> (RuvoTasks::*list)()) {
    add(task, session, name, about, std::make_shared<TaskOptions>(), [list](const Work& work) {
        const auto names = (work.tasks.*list)();
        if (work.session.json) {
            work.session.out() << textOf({{"names", names}}) << '\n';
        } else {
            for (const std::string& each : names) work.session.out() << shown(each) << '\n';
        }
        return kDone;
    });
}

// Null when the task keeps bytes: it has no last run and no exit status. The answer is
// the same of a task that is gone, so what is there has to be asked once more; where a
// command is, the -9 was its status.
struct LastRun {
    std::optional<std::int64_t> moment;  // empty: it never ran
    std::int32_t status = RuvoTasks::kNeverRun;
};
std::optional<LastRun> lastRun(RuvoTasks& tasks, std::int32_t task) {
    std::optional<LastRun> last;
    try {
        last = {.moment = lastRunOf(tasks.lastRun(task))};
        last->status = tasks.exitCode(task);
    } catch (const Ruvo::RuvoClientError& error) {
        if (error.problem() != Ruvo::RuvoProblem::Declined) throw;
        (void)tasks.state(task);  // throws the same when it is gone
        if (last) last->status = error.code();
    }
    return last;
}

void showTask(const Work& work, std::int32_t task) {
    const std::string state = stateText(work.tasks.state(task));
    const Ruvo::RuvoTaskPlan plan = work.tasks.nextRun(task);
    const auto last = lastRun(work.tasks, task);
    const auto next = keptMoment(plan.time);
    Json json = {{"handle", task}, {"kind", last ? "command" : "bytes"}, {"state", state},
                 {"nextRun", timeJson(next)}, {"frequency", frequencyText(plan.frequency)}};
    std::string text = "handle       " + std::to_string(task) + "\nkind         " +
                       (last ? "command" : "bytes") + "\nstate        " + state;
    if (!work.options.isHandle) {
        json["name"] = work.options.task;
        text = "name         " + shown(work.options.task) + '\n' + text;
    }
    if (last) {
        const bool hasStatus = last->status != RuvoTasks::kNeverRun;
        json["lastRun"] = timeJson(last->moment);
        json["exitCode"] = hasStatus ? Json(last->status) : Json();
        text += "\nlast run     " + timeText(last->moment, "none yet") +
                "\nexit status  " + (hasStatus ? std::to_string(last->status) : "none yet");
    }
    text += "\nnext run     " + timeText(next, kPast) + "\nfrequency    " +
            frequencyText(plan.frequency);
    show(work.session, json, text);
}

void showNext(const Work& work, std::int32_t task) {
    const Ruvo::RuvoTaskPlan plan = work.tasks.nextRun(task);
    const auto next = keptMoment(plan.time);
    show(work.session, {{"handle", task}, {"nextRun", timeJson(next)},
                        {"frequency", frequencyText(plan.frequency)}},
         timeText(next, kPast) + ", " + frequencyText(plan.frequency));
}

void showState(const Work& work, std::int32_t task) {
    const std::int32_t state = work.tasks.state(task);
    show(work.session, {{"handle", task}, {"state", stateText(state)}, {"code", state}},
         stateText(state));
}

void showExitCode(const Work& work, std::int32_t task) {
    const std::int32_t status = work.tasks.exitCode(task);
    const bool hasRun = status != RuvoTasks::kNeverRun;
    show(work.session, {{"handle", task}, {"exitCode", hasRun ? Json(status) : Json()}},
         std::to_string(status));
}

void cancel(const Work& work, std::int32_t task) {
    work.tasks.cancel(task);
    show(work.session, {{"handle", task}, {"cancelled", true}},
         "task " + std::to_string(task) + ": cancelled");
}

void writeBytes(const std::string& file, const std::string& bytes) {
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream) throw Failure(kIncomplete, "cannot write " + file);
}

void addRetrieve(CLI::App& task, Session& session) {
    auto options = std::make_shared<TaskOptions>();
    CLI::App* const command = add(
        task, session, "retrieve", "Get the bytes that a task keeps", options,
        [](const Work& work) {
            const std::int32_t handle = taskOf(work.tasks, work.options);
            const std::string bytes = work.tasks.retrieve(handle);
            if (!work.options.file.empty()) writeBytes(work.options.file, bytes);
            if (work.session.json) {
                Json json = {{"handle", handle}, {"size", bytes.size()}};
                if (work.options.file.empty()) json["data"] = hexOf(bytes);
                work.session.out() << textOf(json) << '\n';
            } else if (work.options.file.empty()) {
                work.session.out() << bytes;
            }
            return kDone;
        });
    command->add_option("task", options->task, "Its name")->required();
    command->add_flag("--handle", options->isHandle, "TASK is the handle");
    command->add_option("--output", options->file, "A file for them instead of standard output");
    command->footer("Example:\n  ruvoctl task retrieve order --output order.xml");
}

// ---- following -----------------------------------------------------------------------

int showStatus(const Work& work, std::int32_t task, std::int32_t status) {
    show(work.session, {{"handle", task}, {"exitCode", status}},
         "task " + shown(work.options.task) + " ended with status " + std::to_string(status));
    return exitStatusOf(status);
}

int showEnd(const Work& work, std::int32_t task) {
    return showStatus(work, task, work.tasks.lastStatus(task));
}

// Of a task that is gone: the daemon remembers the statuses of the latest.
int showEndOfGone(const Work& work, std::int32_t task) {
    const std::int32_t status = work.tasks.lastStatus(task);
    if (status != RuvoTasks::kNeverRun) return showStatus(work, task, status);
    throw Failure(kRefused, "the task was cancelled before a run had ended");
}

int wait(const Work& work) {
    const std::int32_t task = taskOf(work.tasks, work.options);
    std::optional<TaskFollowing> following;
    try {
        following.emplace(work.session, work.client, task);
    } catch (const Ruvo::RuvoClientError& error) {
        if (error.problem() != Ruvo::RuvoProblem::Declined) throw;
        return showEndOfGone(work, task);
    }
    try {
        // One that stays in this state has had its run.
        if (work.tasks.state(task) == RuvoTasks::Ended) return showEnd(work, task);
    } catch (const Ruvo::RuvoClientError& error) {
        if (error.problem() != Ruvo::RuvoProblem::Declined) throw;
        // Gone already; how is on its way to us.
    }
    return following->run(
        work.options.patience, kRefused,
        [&](std::int32_t state, const Ruvo::RuvoDelivery&) -> std::optional<int> {
            if (state == RuvoTasks::Ended) return showEnd(work, task);
            if (state != RuvoTasks::Finished) return std::nullopt;
            throw Failure(kRefused, "the task was cancelled");
        });
}

int watch(const Work& work) {
    const std::int32_t task = taskOf(work.tasks, work.options);
    TaskFollowing following(work.session, work.client, task);
    work.session.surroundings.err << "ruvoctl: watching task " << shown(work.options.task)
                                  << std::endl;
    std::int64_t seen = 0;
    return following.run(
        work.options.patience, work.options.count == 0 ? kDone : kRefused,
        [&](std::int32_t state, const Ruvo::RuvoDelivery&) -> std::optional<int> {
            show(work.session, {{"task", work.options.task}, {"handle", task},
                                {"state", stateText(state)}, {"code", state}},
                 shown(work.options.task) + ": " + stateText(state));
            work.session.out().flush();
            if (!work.session.out()) return kIncomplete;  // nobody reads any more
            if (++seen == work.options.count || state == RuvoTasks::Finished) return kDone;
            return std::nullopt;
        });
}

CLI::App* addFollowing(CLI::App& task, Session& session, const char* name, const char* about,
                       const Options& options, int (*body)(const Work&)) {
    CLI::App* const command = add(task, session, name, about, options, body);
    command->add_option("task", options->task, "Its name")->required();
    command->add_flag("--handle", options->isHandle, "TASK is the handle");
    addDuration(*command, "--for", options->patience, "Wait no longer, with status 1 then");
    return command;
}

}  // namespace

void addTaskCommands(CLI::App& app, Session& session) {
    CLI::App* const task = app.add_subcommand("task", "Schedule, query, follow and cancel tasks");
    task->require_subcommand(1);
    task->footer(
        "Examples:\n"
        "  ruvoctl task schedule hello --at +5s --log hello.txt -- echo hello\n"
        "  ruvoctl task wait hello\n"
        "  ruvoctl task show cleanup --json\n"
        "  ruvoctl task cancel cleanup");
    addSchedule(*task, session);
    addScheduleBlob(*task, session);
    addList(*task, session, "list", "Print the names of the tasks with commands",
            &RuvoTasks::list);
    addList(*task, session, "list-blobs", "Print the names of the tasks that keep bytes",
            &RuvoTasks::listBlobs);
    addQuery(*task, session, "show", "Print all that is known of a task", showTask);
    addQuery(*task, session, "next", "Print when a task runs next", showNext);
    addQuery(*task, session, "state", "Print waiting, running or ended", showState);
    addQuery(*task, session, "exit-code",
             "Print the exit status of the last run, -999 before the first", showExitCode);
    addQuery(*task, session, "cancel", "Remove a task; a run under way goes on", cancel);
    addRetrieve(*task, session);
    addFollowing(*task, session, "wait", "Wait for the end of a run and end with its status",
                 std::make_shared<TaskOptions>(), wait)
        ->footer(
            "Standard output has a line if, and only if, a run came to its end; the exit status\n"
            "is the run's then, of which 0 to 255 are handed on (255 for others whose last\n"
            "eight bits are 0). Without that line it is our own: 1 no such task, cancelled or\n"
            "--for is over, 2 bad usage, 3 the daemon cannot be reached or has gone, 4 the line\n"
            "could not be written. With --json the line has the whole status as \"exitCode\".\n\n"
            "A task that ran once is gone, and its name with it; the daemon remembers the status\n"
            "of the last thousand such tasks by their handles, which scheduling tells.\n\n"
            "Examples:\n"
            "  ruvoctl task wait nightly-backup --for 3600\n"
            "  ruvoctl task wait --handle 1234567\n"
            "  ended=$(ruvoctl task wait nightly-backup --json) && echo \"$ended\"");
    auto options = std::make_shared<TaskOptions>();
    CLI::App* const watching = addFollowing(
        *task, session, "watch", "Print each change of a task's state", options, watch);
    addNumber(*watching, "--count", options->count, "End after so many changes; 0: no end", 0,
              std::numeric_limits<std::int64_t>::max());
    watching->footer(
        "Ends when the task is finished or cancelled, at --count, --for or Ctrl-C.\n\n"
        "Example:\n  ruvoctl task watch nightly-backup --json");
}

}  // namespace Ruvoctl
