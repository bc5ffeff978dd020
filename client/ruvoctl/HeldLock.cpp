#include "client/ruvoctl/HeldLock.h"

#include "client/Deadline.h"
#include "client/RuvoLocks.h"
#include "client/ruvoctl/Output.h"
#include "runtime/platform/Environment.h"
#include "runtime/platform/Foreground.h"

#include <algorithm>
#include <new>

namespace Ruvoctl {
namespace {

using Ruvo::RuvoProblem;
using std::chrono::milliseconds;
using VornPlatform::EndRequest;
using VornPlatform::OsCondition;

// How soon a request to end is handed on. The command's own end does not wait
// for it.
constexpr milliseconds kLookInterval(200);
// What is kept of the time that the system leaves us, to unlock in.
constexpr milliseconds kToUnlock(2000);
// How long somebody who asks for our end waits for the daemon's answer.
constexpr milliseconds kToAnswer(1000);
constexpr std::size_t kAnswerBytes = 4;
constexpr int kHangUp = 1;

constexpr const char* kHandleVariable = "RUVO_LOCK_HANDLE";

// Memory that was short may be there a moment later: what was short of it lets go
// of some.
void sendUnlock(Ruvo::RuvoClient& client, std::int32_t handle) {
    for (int left = 3;; --left) {
        try {
            client.send(Ruvo::RuvoLocks::unlockRequest(handle));
            return;
        } catch (const std::bad_alloc&) {
            if (left == 0) throw;
        }
    }
}

}  // namespace

bool HeldLock::obtain(milliseconds wait) {
    const auto handle = Ruvo::RuvoLocks(client_).lock(
        path_, wait, [this] { return !session_.surroundings.isInterrupted(); });
    handle_ = handle.value_or(kNone);
    return handle.has_value();
}

void HeldLock::release() noexcept {
    const std::int32_t handle = std::exchange(handle_, kNone);
    if (handle == kNone) return;
    try {
        try {
            unlock(handle);
        } catch (const Ruvo::RuvoClientError& error) {
            complain(handle, error);
        }
    } catch (...) {
        // No memory to say so.
    }
}

// The daemon has the request, also when nobody waits for its answer.
void HeldLock::unlock(std::int32_t handle) {
    const auto& surroundings = session_.surroundings;
    bool isHurried = end_.has_value();
    surroundings.settleRequests();
    // Those that came before were the command's, or have been heeded.
    while (const auto request = surroundings.nextRequest()) isHurried |= request->graceMs >= 0;
    const milliseconds patience = client_.options().timeout;
    Ruvo::Deadline deadline(isHurried ? std::min(patience, kToAnswer) : patience);
    sendUnlock(client_, handle);
    while (!client_.awaitAnswer(kAnswerBytes, std::min(patience, kLookInterval))) {
        if (!isHurried && surroundings.nextRequest()) {
            isHurried = true;
            deadline = Ruvo::Deadline(std::min(patience, kToAnswer));
        }
        if (!deadline.isOver()) continue;
        client_.close();
        throw Ruvo::RuvoClientError(RuvoProblem::TimedOut, {});
    }
    (void)client_.readInt();
}

void HeldLock::complain(std::int32_t handle, const Ruvo::RuvoClientError& error) const {
    std::string text = "ruvoctl: ";
    if (commandStatus_) {
        text += "the command ended with status " + std::to_string(*commandStatus_) + ", but ";
    }
    text += "the lock of \"" + shown(path_) + "\" could not be given back: ";
    const std::string again = "'ruvoctl unlock " + std::to_string(handle) + '\'';
    switch (error.problem()) {
        case RuvoProblem::TimedOut:
            text += "the daemon at " + client_.address() +
                    " does not answer. It has been asked, and may do it yet. Unless it has been "
                    "restarted since, " +
                    again + " asks once more; after a restart that may be somebody else's lock";
            break;
        case RuvoProblem::Closed:
        case RuvoProblem::Unreachable:
            text += "the daemon at " + client_.address() +
                    " is gone. If it has stopped, its locks are gone too; if only the "
                    "connection was lost, " +
                    again + " gives this one back";
            break;
        default:
            text += std::string(error.what()) + "; " + again + " tries once more";
    }
    session_.surroundings.err << text << std::endl;
}

int HeldLock::run(const std::vector<std::string>& words) {
    VornPlatform::ProcessHandle process;
    if (const auto status = start(words, process)) return *status;
    commandStatus_ = awaitEnd(process);
    const int status = commandStatus_.value_or(kSignalBase + kHangUp);
    release();
    return status;
}

// The status of a program that was asked to end before it began the command.
std::optional<int> HeldLock::start(const std::vector<std::string>& words,
                                   VornPlatform::ProcessHandle& process) {
    const auto& surroundings = session_.surroundings;
    session_.out().flush();
    auto error = VornPlatform::setEnv(kHandleVariable, std::to_string(handle_));
    surroundings.settleRequests();
    if (const auto request = surroundings.nextRequest()) return kSignalBase + request->signal;
    if (!error) error = VornPlatform::startInForeground(words, process);
    if (error) {
        const OsCondition condition = error.condition();
        throw Failure(condition == OsCondition::NotFound ? kNoSuchProgram : kCannotRun,
                      "cannot run \"" + shown(words.front()) + "\": " +
                          (condition == OsCondition::InvalidArgument
                               ? "the system cannot hand over its name or one of its arguments"
                               : error.text()));
    }
    // What came while it was being started may have been told to us alone, also by
    // the terminal. Better twice than never.
    surroundings.settleRequests();
    while (auto request = surroundings.nextRequest()) {
        request->reachedOthers = false;
        heed(*request, process);
    }
    return std::nullopt;
}

// Empty when the system ends us first, and the command with us.
std::optional<int> HeldLock::awaitEnd(VornPlatform::ProcessHandle& process) {
    while (!process.wait(static_cast<int>(kLookInterval.count()))) {
        while (const auto request = session_.surroundings.nextRequest()) heed(*request, process);
        if (end_ && Clock::now() >= *end_) return std::nullopt;
        showSignOfLife();
    }
    return process.exitCode();
}

void HeldLock::heed(const EndRequest& request, VornPlatform::ProcessHandle& process) {
    VornPlatform::handOn(request, process);
    if (request.graceMs < 0 || end_) return;
    end_ = Clock::now() + milliseconds(request.graceMs) - kToUnlock;
}

// Nothing is to be done here about a conversation that has ended; release() tells.
void HeldLock::showSignOfLife() noexcept {
    if (!session_.useUdp || !client_.isOpen()) return;
    if (Clock::now() - lastSign_ < session_.surroundings.signOfLife) return;
    lastSign_ = Clock::now();
    try {
        client_.acknowledge();
    } catch (...) {
    }
}

}  // namespace Ruvoctl
