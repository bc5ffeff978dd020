#pragma once

#include "arbiter/RuvoRAEngine.h"
#include "runtime/support/VornCollaborator.h"
#include "runtime/support/VornEvent.h"

#include <atomic>
#include <memory>
#include <vector>

namespace RuvoService {

// The events of waits that are to end. Each is set after the walk through all of
// them, when the waits themselves may be over and gone. One thread.
class RuvoRAWakeUps {
public:
    using EventPointer = std::shared_ptr<VornSupport::VornEvent>;

    // Sets it at once when there is no memory.
    void add(const EventPointer& event) noexcept;
    void wakeAll();

private:
    std::vector<EventPointer> events_;
};

// One request's wait for a node, on the stack of its thread. From construction
// to destruction it is told what happens to the node.
class RuvoRATimedUnlock final : public VornSupport::VornDependent {
public:
    // Both are borrowed. `client` may be null.
    RuvoRATimedUnlock(RuvoRAEngine::RANode& node, VornNet::VornConnection* client);
    ~RuvoRATimedUnlock() override;
    RuvoRATimedUnlock(const RuvoRATimedUnlock&) = delete;
    RuvoRATimedUnlock& operator=(const RuvoRATimedUnlock&) = delete;

    // True when the node was unlocked, also before the call but after its caller
    // found it locked; false when `waitMs` passed or the client has gone, which
    // is noticed within a second. Negative: no limit.
    bool wait(int waitMs);

    // On the thread that changed the node.
    void handleNotification(VornSupport::VornCollaborator& source,
                            const VornSupport::VornNotification& notification) override;

private:
    RuvoRAEngine::RANode& node_;
    VornNet::VornConnection* const client_;
    std::atomic<bool> unlocked_{false};
    // Also set when the connection is broken off.
    const RuvoRAWakeUps::EventPointer eventUnlock_ = std::make_shared<VornSupport::VornEvent>();
};

}  // namespace RuvoService
