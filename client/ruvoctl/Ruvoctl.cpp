#include "client/ruvoctl/Ruvoctl.h"

#include "client/ruvoctl/Commands.h"

#include <exception>

namespace Ruvoctl {
namespace {

constexpr const char* kAbout =
    "Drives the management services daemon: jobs, events, requests of any monitor.";

constexpr const char* kFooter = R"(Examples:
  ruvoctl job create nightly-backup --description "every night at two"
  ruvoctl job progress nightly-backup 50
  ruvoctl watch '^VornJSEvent:'
  ruvoctl notify disk.failed --message "bay 3"
  ruvoctl job create --help

Environment:
  RUVO_PORT   the daemon's port, where --port does not name it

Exit status: 0 done, 1 the daemon said no or nothing was found in time,
2 bad usage, 3 the daemon cannot be reached.)";

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
    app.add_option("--port", session.port,
                   "Its port (default: RUVO_PORT, else 27610, with --udp 27611)")
        ->check(CLI::Range(1, 65535));
    app.add_flag("--udp", session.useUdp, "Speak UDP instead of TCP");
    app.add_option("--timeout", session.timeoutSeconds, "Seconds to wait for an answer")
        ->capture_default_str();
    app.add_flag("--json", session.json, "Write results as JSON");
    app.set_version_flag("--version", std::string("ruvoctl ") + RUVO_VERSION);
}

int runCommand(Session& session) {
    try {
        const int status = session.command();
        session.out().flush();
        return status;
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

}  // namespace

int run(const std::vector<std::string>& arguments, Surroundings& surroundings) {
    Session session(surroundings);
    CLI::App app(kAbout, "ruvoctl");
    app.footer(kFooter);
    app.fallthrough();
    app.allow_windows_style_options(false);  // "/tmp/x" is a path everywhere
    app.require_subcommand(1);
    addGlobalOptions(app, session);
    addJobCommands(app, session);
    addNotifyCommand(app, session);
    addWatchCommand(app, session);
    addRawCommand(app, session);
    addStopCommand(app, session);
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::Success& asked) {
        return app.exit(asked, surroundings.out, surroundings.err);
    } catch (const CLI::ParseError& error) {
        surroundings.err << "ruvoctl: " << error.what() << "\nTry 'ruvoctl --help'." << std::endl;
        return kBadUsage;
    }
    return runCommand(session);
}

}  // namespace Ruvoctl
