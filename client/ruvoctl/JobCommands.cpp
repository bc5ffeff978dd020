#include "client/RuvoJobs.h"
#include "client/ruvoctl/Commands.h"
#include "client/ruvoctl/Numbers.h"
#include "client/ruvoctl/Output.h"

#include <charconv>
#include <limits>
#include <memory>
#include <vector>

namespace Ruvoctl {
namespace {

using Ruvo::RuvoJobs;

struct JobOptions {
    std::string job;  // a name or an id
    bool isName = false;
    std::string description;
    std::int64_t progress = 0;
    bool takesList = false;
    std::vector<std::int32_t> numbers;
};
using Options = std::shared_ptr<JobOptions>;

constexpr std::int64_t kLeast = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();

// The id that the text is, if it is one and no name.
std::optional<std::int32_t> idIn(const std::string& text) {
    const std::size_t sign = text.rfind('-', 0) == 0 ? 1 : 0;
    if (text.size() == sign || text.find_first_not_of("0123456789", sign) != std::string::npos) {
        return std::nullopt;
    }
    std::int32_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec != std::errc{}) {
        throw UsageError("no job has an id like " + text + "; is it a name? Then add --name");
    }
    return number;
}

std::int32_t lookUp(RuvoJobs& jobs, const std::string& name) {
    const auto id = jobs.lookup(name);
    if (!id) throw Failure(kRefused, "there is no job named \"" + name + "\"");
    return *id;
}

std::int32_t idOf(RuvoJobs& jobs, const JobOptions& options) {
    if (!options.isName) {
        if (const auto number = idIn(options.job)) return *number;
    }
    return lookUp(jobs, options.job);
}

// Adds a command whose work gets the conversation and the options.
template <typename Work>
CLI::App* add(CLI::App& parent, Session& session, const char* name, const char* about,
              const Options& options, Work work) {
    CLI::App* const command = parent.add_subcommand(name, about);
    command->callback([&session, options, work] {
        session.command = [&session, options, work] {
            // Before connecting.
            if (options->takesList) refuseLists(session, options->job);
            if (!options->isName) (void)idIn(options->job);
            auto client = session.connect();
            RuvoJobs jobs(client);
            work(session, jobs, *options);
            return kDone;
        };
    });
    return command;
}

void addJobArgument(CLI::App* command, const Options& options) {
    command->add_option("job", options->job, "Its name, or its id")->required();
    command->add_flag("--name", options->isName, "JOB is a name, even if it is a number");
}

void show(Session& session, const Json& json, const std::string& text) {
    session.out() << (session.json ? textOf(json) : text) << '\n';
}

std::string jobText(std::int32_t id, const std::string& text) {
    return "job " + std::to_string(id) + ": " + text;
}

void addCreate(CLI::App& job, Session& session) {
    auto options = std::make_shared<JobOptions>();
    options->isName = true;
    CLI::App* const create = add(
        job, session, "create", "Create a job and print its id", options,
        [](Session& run, RuvoJobs& jobs, const JobOptions& given) {
            const std::int32_t id = jobs.create(given.job, given.description);
            show(run, {{"id", id}, {"name", given.job}}, std::to_string(id));
        });
    create->add_option("name", options->job, "A name that no other job has")->required();
    create->add_option("--description", options->description, "What the job is for");
    create->footer("Example:\n  ruvoctl job create nightly-backup --description \"at two\"");
}

void addLookup(CLI::App& job, Session& session) {
    auto options = std::make_shared<JobOptions>();
    options->isName = true;
    CLI::App* const lookup =
        add(job, session, "lookup", "Print the id of the job with this name", options,
            [](Session& run, RuvoJobs& jobs, const JobOptions& given) {
                const std::int32_t id = lookUp(jobs, given.job);
                show(run, {{"id", id}, {"name", given.job}}, std::to_string(id));
            });
    lookup->add_option("name", options->job, "The name")->required();
    lookup->footer("Example:\n  ruvoctl job lookup nightly-backup");
}

void addProgress(CLI::App& job, Session& session) {
    auto options = std::make_shared<JobOptions>();
    CLI::App* const progress =
        add(job, session, "progress", "Report a job's progress", options,
            [](Session& run, RuvoJobs& jobs, const JobOptions& given) {
                const std::int32_t id = idOf(jobs, given);
                jobs.setProgress(id, static_cast<std::int32_t>(given.progress));
                show(run, {{"id", id}, {"progress", given.progress}},
                     jobText(id, "progress " + std::to_string(given.progress)));
            });
    addJobArgument(progress, options);
    addNumber(*progress, "value", options->progress, "Any 32-bit number", kLeast, kMost)
        ->required();
    progress->footer("Example:\n  ruvoctl job progress nightly-backup 50");
}

void addGet(CLI::App& job, Session& session) {
    auto options = std::make_shared<JobOptions>();
    CLI::App* const get =
        add(job, session, "get", "Print a job's progress", options,
            [](Session& run, RuvoJobs& jobs, const JobOptions& given) {
                const std::int32_t id = idOf(jobs, given);
                const std::int32_t progress = jobs.getProgress(id);
                show(run, {{"id", id}, {"progress", progress}}, std::to_string(progress));
            });
    addJobArgument(get, options);
    get->footer(
        "The progress of an id that no job has is 0, as the daemon answers it.\n\n"
        "Example:\n  ruvoctl job get nightly-backup");
}

void addMap(CLI::App& job, Session& session) {
    auto options = std::make_shared<JobOptions>();
    options->takesList = true;
    CLI::App* const map = add(
        job, session, "map", "Replace a job's list of numbers", options,
        [](Session& run, RuvoJobs& jobs, const JobOptions& given) {
            const std::int32_t id = idOf(jobs, given);
            jobs.map(id, given.numbers);
            show(run, {{"id", id}, {"numbers", given.numbers}},
                 jobText(id, std::to_string(given.numbers.size()) + " numbers mapped"));
        });
    addJobArgument(map, options);
    const auto take = [options](const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            options->numbers.push_back(
                static_cast<std::int32_t>(numberOf("numbers", text, kLeast, kMost)));
        }
    };
    map->add_option_function<std::vector<std::string>>("numbers", take,
                                                       "The new list; none empties it")
        ->type_name("NUMBER");
    map->footer("Example:\n  ruvoctl job map nightly-backup 11 12 13");
}

void addCancel(CLI::App& job, Session& session) {
    auto options = std::make_shared<JobOptions>();
    CLI::App* const cancel =
        add(job, session, "cancel", "Tell everybody that a job is cancelled; it stays", options,
            [](Session& run, RuvoJobs& jobs, const JobOptions& given) {
                const std::int32_t id = idOf(jobs, given);
                jobs.cancel(id);
                show(run, {{"id", id}, {"cancelled", true}}, jobText(id, "cancelled"));
            });
    addJobArgument(cancel, options);
    cancel->footer("Example:\n  ruvoctl job cancel nightly-backup");
}

void addDelete(CLI::App& job, Session& session) {
    auto options = std::make_shared<JobOptions>();
    CLI::App* const remove =
        add(job, session, "delete", "Complete a job and remove it", options,
            [](Session& run, RuvoJobs& jobs, const JobOptions& given) {
                const std::int32_t id = idOf(jobs, given);
                jobs.remove(id);
                show(run, {{"id", id}, {"deleted", true}}, jobText(id, "deleted"));
            });
    addJobArgument(remove, options);
    remove->footer("Example:\n  ruvoctl job delete nightly-backup");
}

}  // namespace

void addJobCommands(CLI::App& app, Session& session) {
    CLI::App* const job = app.add_subcommand("job", "Create, change and look up jobs");
    job->require_subcommand(1);
    job->footer(
        "Examples:\n"
        "  ruvoctl job create nightly-backup --description \"every night at two\"\n"
        "  ruvoctl job progress nightly-backup 50\n"
        "  ruvoctl job get 1 --json\n"
        "  ruvoctl job delete --name 2024");
    addCreate(*job, session);
    addLookup(*job, session);
    addProgress(*job, session);
    addGet(*job, session);
    addMap(*job, session);
    addCancel(*job, session);
    addDelete(*job, session);
}

}  // namespace Ruvoctl
