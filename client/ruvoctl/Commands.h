#pragma once

#include "client/ruvoctl/Session.h"

#include <CLI/CLI.hpp>

namespace Ruvoctl {

// Each adds its commands; parsing one of them sets session.command. What they
// keep for that belongs to `app`.
void addJobCommands(CLI::App& app, Session& session);
void addNotifyCommand(CLI::App& app, Session& session);
void addWatchCommand(CLI::App& app, Session& session);
void addRawCommand(CLI::App& app, Session& session);
void addStopCommand(CLI::App& app, Session& session);

}  // namespace Ruvoctl
