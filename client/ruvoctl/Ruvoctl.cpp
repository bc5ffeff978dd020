#include "client/ruvoctl/Ruvoctl.h"

#include "client/ruvoctl/Commands.h"
#include "client/ruvoctl/Numbers.h"
#include "client/ruvoctl/Output.h"

#include <algorithm>
#include <exception>

namespace Ruvoctl {
namespace {

constexpr const char* kAbout =
    "Drives the management services daemon: jobs, tasks, events, locks, requests of any "
    "monitor.";

constexpr const char* kFooter = R"(Examples:
  ruvoctl job create nightly-backup --description "every night at two"
  ruvoctl job progress nightly-backup 50
  ruvoctl task schedule cleanup --daily --at 02:30 -- /usr/bin/find /tmp -mtime +7 -delete
  ruvoctl watch '^VornJSEvent:'
  ruvoctl notify disk.failed --message "bay 3"
  ruvoctl lock store:shelf-3 -- tar -cf shelf-3.tar /srv/shelf-3
  ruvoctl job create --help

Environment:
  RUVO_PORT   the daemon's port, where --port does not name it

Exit status: 0 done, 1 the daemon said no or nothing was found in time,
2 bad usage, 3 the daemon cannot be reached, 4 the output could not be
written, or events were lost, 75 somebody else holds the lock; of "lock" with
a command, the command's.)";

int statusOf(Ruvo::RuvoProblem problem) {
    switch (problem) {
        case Ruvo::RuvoProblem::Unreachable:
        case Ruvo::RuvoProblem::TimedOut:
        case Ruvo::RuvoProblem::Closed:
            return kUnreachable;
        case Ruvo::RuvoProblem::Argument:
            return kBadUsage;
        default:
            return kRefused;
    }
}

void addGlobalOptions(CLI::App& app, Session& session) {
    app.add_option("--host", session.host, "Where the daemon runs")->capture_default_str();
    addNumber(app, "--port", session.port,
              "Its port (default: RUVO_PORT, else 27610, with --udp 27611)", 1, 65535);
    app.add_flag("--udp", session.useUdp, "Speak UDP instead of TCP");
    addDuration(app, "--timeout", session.timeout, "How long to wait for an answer")
        ->default_str("10");
    app.add_flag("--json", session.json, "Write results as JSON");
    app.set_version_flag("--version", std::string("ruvoctl ") + RUVO_VERSION);
}

// The last thing of each run: what was printed is not done before it is written.
int finish(int status, Surroundings& surroundings) {
    surroundings.out.flush();
    if (surroundings.out) return status;
    surroundings.err << "ruvoctl: cannot write to standard output" << std::endl;
    return status == kDone ? kIncomplete : status;
}

int runCommand(Session& session) {
    try {
        return finish(session.command(), session.surroundings);
    } catch (const UsageError& error) {
        session.surroundings.err << "ruvoctl: " << error.what() << std::endl;
        return kBadUsage;
    } catch (const Failure& failure) {
        session.surroundings.err << "ruvoctl: " << failure.what() << std::endl;
        return failure.status();
    } catch (const Ruvo::RuvoClientError& error) {
        session.surroundings.err << "ruvoctl: " << error.what() << std::endl;
        return statusOf(error.problem());
    } catch (const std::exception& error) {
        session.surroundings.err << "ruvoctl: " << error.what() << std::endl;
        return kRefused;
    }
}

// What the parser says of arguments of which it can make nothing.
std::string complaintOf(const CLI::App& app, const CLI::ParseError& error) {
    const CLI::App* command = &app;
    while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
    const bool lacksCommand = command->get_require_subcommand_min() > 0;
    const auto unknown = app.remaining(true);
    if (!lacksCommand || unknown.empty()) return error.what();
    const std::string& first = unknown.front();
    return (first.rfind('-', 0) == 0 ? "there is no option \"" : "there is no command \"") +
           shown(first.substr(0, 100)) + "\"";
}

int refuse(const std::string& complaint, Surroundings& surroundings) {
    surroundings.err << "ruvoctl: " << complaint << "\nTry 'ruvoctl --help'." << std::endl;
    return kBadUsage;
}

}  // namespace

void refuseLists(const Session& session, const std::string& expected) {
    const auto isList = [](const std::string& text) {
        return text.size() >= 2 && text.front() == '[' && text.back() == ']';
    };
    bool passed = !isList(expected);
    for (const std::string& argument : session.arguments) {
        if (!isList(argument)) continue;
        if (passed || argument != expected) {
            throw UsageError("\"" + shown(argument.substr(0, 100)) + "\" was not expected");
        }
        passed = true;
    }
}

std::vector<std::string> commandWords(const Session& session, const std::string& name) {
    const auto& all = session.arguments;
    const auto mark = std::find(all.begin(), all.end(), "--");
    if (mark == all.end() || std::find(all.begin(), mark, name) == mark) {
        throw UsageError("a command stands behind \"--\", and all else before it");
    }
    if (mark + 1 == all.end()) throw UsageError("there is no command behind \"--\"");
    if (mark[1].empty()) throw UsageError("a command's name must not be empty");
    return {mark + 1, all.end()};
}

int run(const std::vector<std::string>& arguments, Surroundings& surroundings) {
    Session session(surroundings);
    session.arguments = arguments;
    CLI::App app(kAbout, "ruvoctl");
    app.footer(kFooter);
    app.fallthrough();
    app.allow_windows_style_options(false);  // "/tmp/x" is a path everywhere
    app.require_subcommand(1);
    addGlobalOptions(app, session);
    addJobCommands(app, session);
    addNotifyCommand(app, session);
    addTaskCommands(app, session);
    addWatchCommand(app, session);
    addRawCommand(app, session);
    addLockCommand(app, session);
    addUnlockCommand(app, session);
    addStopCommand(app, session);
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::Success& asked) {
        return finish(app.exit(asked, surroundings.out, surroundings.err), surroundings);
    } catch (const CLI::ParseError& error) {
        return refuse(complaintOf(app, error), surroundings);
    } catch (const UsageError& error) {
        return refuse(error.what(), surroundings);
    }
    return runCommand(session);
}

}  // namespace Ruvoctl
