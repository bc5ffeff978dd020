#include "host/HostRunner.h"

#include "runtime/platform/Signals.h"
#include "runtime/platform/StandardError.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace RuvoHost {
namespace {

constexpr int kThreadPatienceMs = 5000;
constexpr std::chrono::milliseconds kLastLines{500};  // for standard error to take them

// What the signals act on. Null until there is a module.
std::atomic<const RuvoHostApi*> running{nullptr};
std::atomic<bool> stopCameEarly{false};

void stop() {
    stopCameEarly = true;
    if (const RuvoHostApi* const module = running) module->stop();
}

void reload() {
    if (const RuvoHostApi* const module = running) module->reload();
}

void say(const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

// False, with a complaint, when something of what was said got lost. A running
// daemon does not ask: it serves its clients whoever listens.
bool wasHeard() {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
    complain("cannot write to standard output");
    return false;
}

// Whoever started us waits for the last of these lines.
void announce(void* context) {
    const auto& module = *static_cast<const RuvoHostApi*>(context);
    char addresses[4096];
    module.addresses(addresses, sizeof addresses);
    std::istringstream lines(addresses);
    for (std::string line; std::getline(lines, line);) say("ruvohost: listening on " + line);
    say("ruvohost: ready");
}

}  // namespace

void complain(const std::string& text) {
    VornPlatform::writeStandardError("ruvohost: " + text + "\n");
}

void listenToSignals() {
    if (const auto error = VornPlatform::watchSignals({.stop = &stop, .reload = &reload})) {
        complain("signals are not listened to: " + error.text());
    }
}

int runService(const RuvoHostApi& module, const std::string& properties) {
    running = &module;
    if (stopCameEarly) module.stop();

    char error[1024] = "";
    int status = kSuccess;
    if (module.create(properties.c_str(), "", error, sizeof error) != 0) {
        complain(error);
        status = kFailure;
    } else {
        // The table is not changed through the pointer.
        void* const context = const_cast<RuvoHostApi*>(&module);
        if (module.run(&announce, context, error, sizeof error) != 0) {
            complain(error);
            status = kFailure;
        }
        if (module.destroy(kThreadPatienceMs) != 0) {
            // Exit handlers would take from under a thread what it still uses.
            std::fflush(stdout);
            VornPlatform::flushStandardError(kLastLines);
            std::_Exit(status);
        }
    }
    VornPlatform::flushStandardError(kLastLines);
    VornPlatform::tellStopped();
    return status;
}

int checkProperties(const RuvoHostApi& module, const std::string& properties) {
    const auto print = [](void*, const char* line) { say(line); };
    const bool isGood = module.check(properties.c_str(), print, nullptr) == 0;
    return wasHeard() && isGood ? kSuccess : kFailure;
}

int leave(const HostCommandLine& line) {
    std::fputs(line.output.c_str(), stdout);
    VornPlatform::writeStandardError(line.errors);
    VornPlatform::flushStandardError(kLastLines);
    return wasHeard() ? line.exitStatus : kFailure;
}

}  // namespace RuvoHost
