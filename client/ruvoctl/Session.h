#pragma once

#include "client/RuvoClient.h"
#include "runtime/platform/Signals.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace Ruvoctl {

// The program's exit statuses.
inline constexpr int kDone = 0;
inline constexpr int kRefused = 1;      // the daemon said no, or it was not found or in time
inline constexpr int kBadUsage = 2;
inline constexpr int kUnreachable = 3;
inline constexpr int kIncomplete = 4;  // output could not be written, or events were lost
inline constexpr int kNotObtained = 75;   // somebody else holds the lock
inline constexpr int kCannotRun = 126;    // the command that was to run under it
inline constexpr int kNoSuchProgram = 127;
inline constexpr int kSignalBase = 128;   // and the number of the signal that ended it

// What a run of the program needs from outside, so that tests can do without a
// process. Borrowed; outlives the run.
struct Surroundings {
    std::ostream& out;
    std::ostream& err;
    std::function<std::optional<std::string>(const char*)> variable;  // of the environment
    // From then on Ctrl-C only shows in the next; throws Failure when that cannot be.
    std::function<void()> catchInterrupts;
    std::function<bool()> isInterrupted;
    // Over UDP the daemon forgets a conversation after 30 s of silence.
    std::chrono::milliseconds signOfLife{10000};
    // What interrupts there were since catchInterrupts(), each once.
    std::function<std::optional<VornPlatform::EndRequest>()> nextRequest{};
    // Returns when those that came before it show.
    std::function<void()> settleRequests{};
};

// Arguments that parse but make no sense. Ends the program with kBadUsage.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Ends the program with `status` after its message has been shown.
class Failure : public std::runtime_error {
public:
    Failure(int status, const std::string& message)
        : std::runtime_error(message), status_(status) {}
    int status() const { return status_; }

private:
    int status_;
};

// One run: the options that every command takes, and the command to be run when
// all arguments have been read.
struct Session {
    explicit Session(Surroundings& around) : surroundings(around) {}

    // Opens the conversation that the options describe.
    Ruvo::RuvoClient connect() const;
    std::ostream& out() const { return surroundings.out; }

    Surroundings& surroundings;
    std::string host = "127.0.0.1";
    std::int64_t port = 0;  // 0: RUVO_PORT, else the default port
    bool useUdp = false;
    std::chrono::milliseconds timeout{10000};
    bool json = false;
    std::vector<std::string> arguments;  // as they were given
    std::function<int()> command;
};

}  // namespace Ruvoctl
