#include "client/RuvoLocks.h"

#include "client/Deadline.h"

#include <algorithm>
#include <limits>
#include <string>

namespace Ruvo {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::string_view kMonitor = "Arbiter";
constexpr std::size_t kAnswerBytes = 4;
constexpr std::int32_t kUnknownCommand = -999;
constexpr milliseconds kLongestWait{std::numeric_limits<std::int32_t>::max()};

// How soon it is noticed that the wait is not to go on.
constexpr milliseconds kLookInterval(100);
// For the daemon's last word about a wait that was given up.
constexpr milliseconds kLastWord(5000);

// The daemon's answer to a lock request, when it has come.
std::int32_t readHandle(RuvoClient& client) {
    const std::int32_t handle = client.readInt();
    if (handle != kUnknownCommand) return handle;
    client.close();  // it takes the arguments for what comes next
    throw RuvoClientError(RuvoProblem::Declined, "the daemon does not know this command", handle);
}

}  // namespace

RuvoRequest RuvoLocks::lockRequest(std::string_view path, milliseconds wait) {
    const milliseconds sent = std::clamp(wait, kForever, kLongestWait);
    return RuvoRequest(kMonitor, "RUVO_RA_LOCK")
        .addString(path)
        .addInt(static_cast<std::int32_t>(sent.count()));
}

RuvoRequest RuvoLocks::unlockRequest(std::int32_t handle) {
    return RuvoRequest(kMonitor, "RUVO_RA_UNLOCK").addInt(handle);
}

std::optional<std::int32_t> RuvoLocks::lock(std::string_view path, milliseconds wait,
                                            const std::function<bool()>& goesOn) {
    client_.send(lockRequest(path, wait));
    bool isAnswered = false;
    try {
        isAnswered = awaitGrant(wait, goesOn);
    } catch (...) {
        // The conversation's own failure has ended it. `goesOn` may throw the same
        // kind of error, about another one.
        try {
            if (client_.isOpen()) giveUp();
        } catch (...) {
        }
        throw;
    }
    if (!isAnswered) {
        giveUp();
        return std::nullopt;
    }
    const std::int32_t handle = readHandle(client_);
    if (handle <= 0) return std::nullopt;
    return handle;
}

// True when the answer is there, false when the wait is not to go on.
bool RuvoLocks::awaitGrant(milliseconds wait, const std::function<bool()>& goesOn) {
    const milliseconds patience = client_.options().timeout;
    const bool isLimited = wait.count() >= 0 && patience.count() > 0;
    const Deadline end(std::clamp<milliseconds>(wait, milliseconds(0), kLongestWait) + patience);
    auto lastSign = Clock::now();
    while (!client_.awaitAnswer(kAnswerBytes, kLookInterval)) {
        if (goesOn && !goesOn()) return false;
        if (isLimited && end.isOver()) return false;
        if (client_.options().useUdp && Clock::now() - lastSign >= client_.options().signOfLife) {
            lastSign = Clock::now();
            client_.acknowledge();
        }
    }
    return true;
}

// The daemon ends the wait when it sees that nobody waits any more, and may have
// granted the lock before it saw that. Its answer, or the end of the stream, tells
// which; only then is the conversation closed.
void RuvoLocks::giveUp() {
    std::int32_t handle = 0;
    bool answered = true;
    try {
        client_.endSending();
        answered = client_.awaitAnswer(kAnswerBytes, kLastWord);
        if (answered) handle = readHandle(client_);
    } catch (const RuvoClientError&) {
        // It ended the conversation without an answer: nothing was granted.
    }
    client_.close();
    if (!answered) {
        throw RuvoClientError(RuvoProblem::TimedOut,
                              "the daemon at " + client_.address() +
                                  " does not answer: it may have granted the lock");
    }
    if (handle <= 0) return;
    try {
        RuvoClient another(client_.options());
        RuvoLocks(another).unlock(handle);
    } catch (const RuvoClientError& error) {
        throw RuvoClientError(
            error.problem(),
            "the lock was granted while the wait for it ended, and stays: handle " +
                std::to_string(handle) + " could not be unlocked: " + error.what(),
            error.code());
    }
}

void RuvoLocks::unlock(std::int32_t handle) { (void)client_.call(unlockRequest(handle)); }

}  // namespace Ruvo
