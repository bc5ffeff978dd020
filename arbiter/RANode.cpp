#include "arbiter/RuvoRAEngine.h"
#include "arbiter/RuvoRATimedUnlock.h"
#include "notifier/RuvoNNEngine.h"
#include "runtime/net/VornConnection.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornShortText.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <string>

namespace RuvoService {

using VornSupport::VornCriticalSection;
using VornSupport::VornTreeNode;

namespace {

constexpr std::string_view kSeparators = ":,";
constexpr std::size_t kLongestPrinted = 1024;
constexpr const char* kLocking = "sendLockNotification";
constexpr const char* kUnlocking = "sendUnlockNotification";
constexpr std::int32_t kFree = 0;  // also what the data of an event says
constexpr std::int32_t kLocked = 1;

std::atomic<void (*)()> whenUnheard{nullptr};

// The last component of a path that does not end in a separator.
std::string lastComponent(std::string_view path) {
    const auto separator = path.find_last_of(kSeparators);
    return std::string(separator == std::string_view::npos ? path : path.substr(separator + 1));
}

std::shared_ptr<const char[]> copyOf(std::string_view text) {
    const auto copy = std::make_shared_for_overwrite<char[]>(text.size());
    std::copy(text.begin(), text.end(), copy.get());
    return copy;
}

}  // namespace

RuvoRAEngine::RANode::RANode(RuvoRAEngine& engine, std::string_view path)
    : VornTreeNode(lastComponent(path)),
      engine_(engine),
      path_(copyOf(path)),
      length_(path.size()) {}

RuvoRAEngine::RANode::RANode(const RANode& goal, std::size_t length)
    : VornTreeNode(lastComponent(goal.getNodeName().substr(0, length))),
      engine_(goal.engine_),
      path_(goal.path_),
      length_(length) {}

RuvoRAEngine::RANode::~RANode() = default;

// A path of half a million components, each a node: what the names of one
// request have in common they share.
VornSupport::VornSmartPointer<VornTreeNode> RuvoRAEngine::RANode::makeNode(
    std::string_view path, const VornTreeNode& child) const {
    return VornSupport::makeCounted<RANode>(static_cast<const RANode&>(child), path.size());
}

// The names along one path of a megabyte come to hundreds of gigabytes, hence
// the short form; the trace of the request has the whole name.
void RuvoRAEngine::RANode::printGuts(int indent) const {
    VORN_LOG(9, std::string(static_cast<std::size_t>(indent), ' ')
                    << "RANode::print: Node Name = "
                    << VornSupport::shortText(getNodeName(), kLongestPrinted));
}

bool RuvoRAEngine::RANode::isLocked() const {
    VornCriticalSection section(engine_.lock_);
    return locked_ != kFree;
}

RuvoRAEngine::RANode::State RuvoRAEngine::RANode::look() const {
    VornCriticalSection section(engine_.lock_);
    return {locked_ != kFree, unlocks_, toldUnlocks_.load(std::memory_order_acquire)};
}

// ---- announcing ------------------------------------------------------------------

RuvoRAEngine::RANode::Event RuvoRAEngine::RANode::makeEvent(std::int32_t state) const {
    if (!engine_.isHeard()) {
        if (const auto hook = whenUnheard.load(std::memory_order_relaxed)) hook();
        return nullptr;
    }
    const std::string name(getNodeName());
    return VornSupport::makeCounted<RuvoNNEventNotification>(
        "udp:127.0.0.1", "VornRAEvent:" + name, name, static_cast<std::int32_t>(sizeof state),
        reinterpret_cast<const char*>(&state));
}

void RuvoRAEngine::RANode::setWhenUnheardForTest(void (*hook)()) { whenUnheard = hook; }

RuvoRAEngine::RANode::Event RuvoRAEngine::RANode::makeUnlockEvent() const noexcept {
    try {
        return makeEvent(kFree);
    } catch (const std::exception& e) {
        // Out of memory, say. That costs the event, not those who wait.
        VORN_LOG(2, "RuvoRAEngine::RANode::unlock: exception: " << e.what());
        return nullptr;
    }
}

// Under the engine's lock, so that listeners see the changes of a node in the
// order in which they happened.
void RuvoRAEngine::RANode::announce(const char* operation, const Event& event) {
    VORN_LOG(9, "RuvoRAEngine::RANode::" << operation << "(" << getNodeName() << "): enter");
    if (event) engine_.notifier_->produce(event);
}

// The requests that wait. Under no lock: a thousand of them are woken here, and
// each wants the engine's lock at once. None wakes before all have been told, so
// that the first one's way to its answer is free.
template <class Notification>
void RuvoRAEngine::RANode::tellDependents(const char* operation) {
    VORN_LOG(9, "RuvoRAEngine::RANode::" << operation << "(" << getNodeName()
                                         << "): sending notifications to local dependents");
    RuvoRAWakeUps wakeUps;
    try {
        notify(Notification(&wakeUps));
    } catch (const std::exception& e) {
        // Out of memory, say. The change stands; who was not told finds out.
        VORN_LOG(2, "RuvoRAEngine::RANode::" << operation << ": exception: " << e.what());
    }
    wakeUps.wakeAll();
    VORN_LOG(9, "RuvoRAEngine::RANode::" << operation << "(" << getNodeName() << "): exit");
}

// ---- locking ---------------------------------------------------------------------

bool RuvoRAEngine::RANode::lock(int waitMs, VornNet::VornConnection* client) {
    VORN_LOG(9, "RuvoRAEngine::RANode::lock(" << getNodeName() << "): enter");
    bool result = tryLock(waitMs);
    while (!result && waitMs != 0) {
        if (!awaitUnlock(waitMs, client)) {
            VORN_LOG(9, "RuvoRAEngine::RANode::lock(" << getNodeName()
                                                      << "): timer expired, node is still locked");
            break;
        }
        VORN_LOG(9, "RuvoRAEngine::RANode::lock(" << getNodeName()
                                                  << "): node was unlocked, retrying lock");
        // The full time again: there is no deadline for all tries together.
        result = tryLock(waitMs);
    }
    VORN_LOG(9, "RuvoRAEngine::RANode::lock(" << getNodeName() << "): exit (" << result << ")");
    return result;
}

bool RuvoRAEngine::RANode::tryLock(int waitMs) {
    for (bool done = false; !done;) {
        // Made before the lock is taken: names may be long.
        const bool free = !engine_.isHeard() || !isLocked();
        const Event event = free ? makeEvent(kLocked) : nullptr;
        VornCriticalSection section(engine_.lock_);
        if (locked_ != kFree) {
            if (waitMs != 0) {
                VORN_LOG(9, "RuvoRAEngine::RANode::lock(" << getNodeName() << "): delaying for "
                                                          << waitMs
                                                          << "ms or until node is unlocked");
            }
            return false;
        }
        // Between the two looks it was unlocked, or the first listener came.
        if (!event && engine_.isHeard()) continue;
        VORN_LOG(9, "RuvoRAEngine::RANode::lock(" << getNodeName() << "): locking node");
        announce(kLocking, event);
        locked_ = kLocked;
        done = true;
    }
    tellDependents<RANodeLocked>(kLocking);
    return true;
}

bool RuvoRAEngine::RANode::awaitUnlock(int waitMs, VornNet::VornConnection* client) {
    if (client != nullptr) client->flush();
    RuvoRATimedUnlock waiting(*this, client);
    return waiting.wait(waitMs);
}

bool RuvoRAEngine::RANode::unlock() {
    if (!setFree(makeUnlockEvent())) return false;
    tellUnlocked();
    return true;
}

bool RuvoRAEngine::RANode::setFree(const Event& event) {
    VornCriticalSection section(engine_.lock_);
    if (locked_ == kFree) return false;
    locked_ = kFree;
    ++unlocks_;
    try {
        announce(kUnlocking, event ? event : makeUnlockEvent());  // the first listener just came
    } catch (const std::exception& e) {
        // As above.
        VORN_LOG(2, "RuvoRAEngine::RANode::unlock: exception: " << e.what());
    }
    return true;
}

void RuvoRAEngine::RANode::tellUnlocked() {
    tellDependents<RANodeUnlocked>(kUnlocking);
    toldUnlocks_.fetch_add(1, std::memory_order_release);
}

}  // namespace RuvoService
