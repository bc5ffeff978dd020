#include "host/HostCommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <sstream>

namespace RuvoHost {
namespace {

constexpr const char* kExamples =
    "Examples:\n"
    "  ruvohost --properties config/ruvod.properties\n"
    "      runs the daemon until SIGTERM, SIGINT or Ctrl-C; prints each address it\n"
    "      listens on and then \"ruvohost: ready\"; SIGHUP has it read the file again\n"
    "  ruvohost check --properties /etc/ruvod/ruvod.properties\n"
    "      one line for each thing that is wrong with the file; starts nothing\n"
    "\n"
    "Exit status: 0 stopped as asked, or nothing found; 1 could not start, or\n"
    "something found; 2 bad usage.";

}  // namespace

HostCommandLine parseHostCommandLine(std::vector<std::string> arguments,
                                     const std::string& version) {
    HostCommandLine line;
    CLI::App app("The service host of the ruvod daemon.", "ruvohost");
    app.set_version_flag("--version", "ruvohost " + version);
    app.footer(kExamples);
    app.require_subcommand(0, 1);
    app.add_option("-p,--properties", line.properties, "The daemon's properties file")
        ->type_name("FILE");

    const auto add = [&app, &line](const char* name, const char* what, HostAction action) {
        app.add_subcommand(name, what)->fallthrough()->callback(
            [&line, action] { line.action = action; });
    };
    add("run", "Run the daemon in the foreground (the default)", HostAction::Run);
    add("check", "Look through the properties file and start nothing", HostAction::Check);
    add("install", "Register the daemon with the service manager", HostAction::Install);
    add("remove", "Take the daemon out of the service manager", HostAction::Remove);

    try {
        std::reverse(arguments.begin(), arguments.end());  // as the parser wants them
        app.parse(arguments);
        const bool needsFile =
            line.action == HostAction::Run || line.action == HostAction::Check;
        if (needsFile && line.properties.empty()) {
            throw CLI::RequiredError("--properties FILE");
        }
    } catch (const CLI::ParseError& e) {
        std::ostringstream output;
        std::ostringstream errors;
        const int code = app.exit(e, output, errors);
        line.action = HostAction::Exit;
        line.exitStatus = code == 0 ? kSuccess : kBadUsage;
        line.output = output.str();
        line.errors = errors.str();
    }
    return line;
}

}  // namespace RuvoHost
