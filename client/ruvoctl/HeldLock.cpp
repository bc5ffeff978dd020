#include "client/ruvoctl/HeldLock.h"

#include "client/RuvoLocks.h"
#include "client/ruvoctl/Output.h"
#include "runtime/platform/Environment.h"
#include "runtime/platform/Foreground.h"

#include <algorithm>
#include <optional>

namespace Ruvoctl {
namespace {

using std::chrono::milliseconds;
using VornPlatform::OsCondition;

// How soon a request to end is handed on. The command's own end does not wait
// for it.
constexpr milliseconds kLookInterval(200);
// What is kept of the time that the system leaves us, to unlock in.
constexpr milliseconds kToUnlock(2000);
constexpr int kHangUp = 1;

constexpr const char* kHandleVariable = "RUVO_LOCK_HANDLE";

}  // namespace

void HeldLock::release() noexcept {
    if (!isHeld_) return;
    isHeld_ = false;
    try {
        if (isHurried_) client_.setTimeout(kToUnlock / 2);
        Ruvo::RuvoLocks(client_).unlock(handle_);
    } catch (const Ruvo::RuvoClientError& error) {
        const std::string handle = std::to_string(handle_);
        session_.surroundings.err
            << "ruvoctl: the lock of \"" << shown(path_) << "\" was not unlocked: " << error.what()
            << ". A daemon that has stopped has given up its locks; in one that has not, "
               "'ruvoctl unlock "
            << handle << "' unlocks it" << std::endl;
    } catch (...) {
        // No memory to say so.
    }
}

int HeldLock::run(const std::vector<std::string>& words) {
    VornPlatform::ProcessHandle process;
    start(words, process);
    const int status = awaitEnd(process);
    release();
    return status;
}

void HeldLock::start(const std::vector<std::string>& words, VornPlatform::ProcessHandle& process) {
    session_.out().flush();
    (void)VornPlatform::setEnv(kHandleVariable, std::to_string(handle_));
    const auto error = VornPlatform::startInForeground(words, process);
    if (!error) return;
    const OsCondition condition = error.condition();
    throw Failure(condition == OsCondition::NotFound ? kNoSuchProgram : kCannotRun,
                  "cannot run \"" + shown(words.front()) + "\": " +
                      (condition == OsCondition::InvalidArgument
                           ? "the system cannot hand over its name or one of its arguments"
                           : error.text()));
}

int HeldLock::awaitEnd(VornPlatform::ProcessHandle& process) {
    std::optional<Clock::time_point> end;
    while (!process.wait(static_cast<int>(kLookInterval.count()))) {
        while (const auto request = session_.surroundings.nextRequest()) {
            VornPlatform::handOn(*request, process);
            if (request->graceMs < 0 || end) continue;
            isHurried_ = true;
            end = Clock::now() + milliseconds(request->graceMs) - kToUnlock;
        }
        // The command ends with us, if not before.
        if (end && Clock::now() >= *end) return kSignalBase + kHangUp;
        showSignOfLife();
    }
    return process.exitCode();
}

// Nothing is to be done here about a conversation that has ended; release() tells.
void HeldLock::showSignOfLife() {
    if (!session_.useUdp || !client_.isOpen()) return;
    if (Clock::now() - lastSign_ < session_.surroundings.signOfLife) return;
    lastSign_ = Clock::now();
    try {
        client_.acknowledge();
    } catch (const Ruvo::RuvoClientError&) {
    }
}

}  // namespace Ruvoctl
