#pragma once

#include "client/ruvoctl/Session.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace Ruvoctl {

// The parser takes "[a,b]" for several arguments, and "[]" for none, where a
// command takes any number of them. Throws UsageError when there is such an
// argument, other than the one `expected`.
void refuseLists(const Session& session, const std::string& expected = {});
// The words of a command behind "--" as they were typed, lists and all. `name`
// is the argument that must stand before it. Throws UsageError when there is no
// such command.
std::vector<std::string> commandWords(const Session& session, const std::string& name);

// Each adds its commands; parsing one of them sets session.command. What they
// keep for that belongs to `app`.
void addJobCommands(CLI::App& app, Session& session);
void addNotifyCommand(CLI::App& app, Session& session);
void addWatchCommand(CLI::App& app, Session& session);
void addRawCommand(CLI::App& app, Session& session);
void addLockCommand(CLI::App& app, Session& session);
void addUnlockCommand(CLI::App& app, Session& session);
void addTaskCommands(CLI::App& app, Session& session);
void addStopCommand(CLI::App& app, Session& session);

}  // namespace Ruvoctl
