#include "arbiter/RuvoRAEngine.h"

#include "arbiter/RuvoRACommands.h"
#include "notifier/RuvoNNEngine.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornPostponed.h"

namespace RuvoService {

using VornSupport::VornCriticalSection;

RuvoRAEngine::RuvoRAEngine(RuvoNNEngine* notifier)
    : RuvoEngineBase("Arbiter"), notifier_(notifier), root_(*this, "root") {
    root_.addRef();  // ours, so that no pointer to it ever destroys it
    addCommand<RUVO_RA_LOCK>("RUVO_RA_LOCK");
    addCommand<RUVO_RA_UNLOCK>("RUVO_RA_UNLOCK");
}

RuvoRAEngine::~RuvoRAEngine() { retire(); }

bool RuvoRAEngine::initialize() { return true; }

// Requests that wait end with their connections, which the service has broken
// off by now. What is locked stays so.
bool RuvoRAEngine::cleanup() { return true; }

RuvoRAEngine::Node RuvoRAEngine::getNode(std::string_view path) {
    path = path.substr(0, path.find_last_not_of(":,") + 1);
    if (path.empty()) return &root_;
    // Looked for first: nearly always it is there already.
    auto node = root_.find(path);
    if (!node) {
        node = root_.add(VornSupport::makeCounted<RANode>(*this, path), path);
    }
    return static_cast<RANode*>(node.get());
}

std::int32_t RuvoRAEngine::lock(std::string_view path, int waitMs,
                                VornNet::VornConnection* client) {
    const Node node = getNode(path);
    std::int32_t handle = 0;
    if (node->lock(waitMs, client)) {
        try {
            handle = giveHandle(node);
        } catch (...) {
            node->unlock();  // nobody else could
            throw;
        }
    }
    VORN_LOG(9, "RuvoRAEngine::lock: lock handle " << handle);
    return handle;
}

// Handles are not checked for having been given out before: that takes two
// thousand million locks.
std::int32_t RuvoRAEngine::giveHandle(const Node& node) {
    VornCriticalSection section(lock_);
    const auto handle = static_cast<std::int32_t>(static_cast<std::uint32_t>(handleCounter_) + 1);
    handles_[handle] = node;
    handleCounter_ = handle;
    return handle;
}

void RuvoRAEngine::unlock(std::int32_t handle) {
    Node node;
    {
        VornCriticalSection section(lock_);
        const auto found = handles_.find(handle);
        if (found == handles_.end()) return;
        node = found->second;
    }
    const auto event = node->makeUnlockEvent();
    {
        VornCriticalSection section(lock_);
        // Somebody else may have given it back meanwhile.
        if (handles_.erase(handle) == 0 || !node->setFree(event)) return;
    }
    node->tellUnlocked();
}

bool RuvoRAEngine::isHeard() const { return notifier_ != nullptr && notifier_->isHeard(); }

void RuvoRAEngine::waitForRoom(VornNet::VornConnection& connection) {
    if (notifier_ != nullptr) notifier_->waitForRoom(connection);
}

void RuvoRAEngine::printTree() const {
    // Who listens is not to wait for a million lines.
    if (VornSupport::VornLogging::isOn(9)) VornSupport::VornPostponed::perform();
    root_.print(0);
}

std::size_t RuvoRAEngine::heldHandlesForTest() const {
    VornCriticalSection section(lock_);
    return handles_.size();
}

}  // namespace RuvoService
