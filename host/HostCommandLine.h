#pragma once

#include <string>
#include <vector>

namespace RuvoHost {

// Exit statuses of the program.
inline constexpr int kSuccess = 0;
inline constexpr int kFailure = 1;   // could not start; check: something was found
inline constexpr int kBadUsage = 2;

enum class HostAction { Run, Check, Install, Remove, Exit };

// What the command line asks for.
struct HostCommandLine {
    HostAction action = HostAction::Run;
    std::string properties;  // of Run and Check
    // Of Exit: what to print before leaving, and where.
    int exitStatus = kSuccess;
    std::string output;
    std::string errors;
};

// Takes the arguments after the program's name. `version` is what --version
// shows. Never throws for bad usage: that is an Exit with kBadUsage.
HostCommandLine parseHostCommandLine(std::vector<std::string> arguments,
                                     const std::string& version);

}  // namespace RuvoHost
