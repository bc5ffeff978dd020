#pragma once

#include "host/HostCommandLine.h"
#include "service/RuvoHostApi.h"

#include <string>

namespace RuvoHost {

// Has SIGTERM and its likes stop the service and SIGHUP reload it, from now on,
// before the module is loaded as well. On the main thread, before all others.
void listenToSignals();

// Each returns the exit status of the program and prints to the standard
// streams what there is to say.
int runService(const RuvoHostApi& module, const std::string& properties);
int checkProperties(const RuvoHostApi& module, const std::string& properties);

// Prints what an Exit has to say and returns its status, or kFailure when that
// cannot be written.
int leave(const HostCommandLine& line);

// "ruvohost: TEXT" on standard error.
void complain(const std::string& text);

}  // namespace RuvoHost
