#pragma once

#include "runtime/net/VornProxyDependent.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornSmartPointer.h"
#include "scheduler/RuvoTSNotifications.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <string>

namespace RuvoService {

class RuvoTSTask;

// A client that follows one task: is told each change of its state. Registered
// with the task and with VornProxyDependentContainer by RuvoTSTask::follow. Any
// thread.
class VORN_EXPORT RuvoTSTaskDependent final : public VornNet::VornProxyDependent {
public:
    // Opens the content of every delivery.
    static constexpr int kMarker = 12345;

    // `task` is not held: it takes this from both registers before it goes.
    RuvoTSTaskDependent(const std::string& remoteName, std::int32_t handle, RuvoTSTask& task);
    ~RuvoTSTaskDependent() override;

    RuvoTSTask& getTask() const { return task_; }

    // Called by RuvoTSTask::follow, once.
    void noteFollows();
    bool follows() const { return follows_; }
    // How many there are that nobody has given to RuvoTSTask::follow: who
    // registers one without it leaves it to the task to find it.
    static int madeByHand();

    // Delivers a RuvoTSTaskNotification; ignores others, and everything once
    // somebody has taken this registration back. Changes are delivered in their order,
    // one at a time: who comes while another thread delivers leaves that to it,
    // and a change that comes after a later one is dropped. A failed delivery, or
    // a change that memory was missing for, is logged at level 3 and lost.
    void handleNotification(VornSupport::VornCollaborator& source,
                            const VornSupport::VornNotification& notification) override;

protected:
    // Writes the marker, the state and the handle of the task (int).
    void addContent(VornNet::VornConnection& connection,
                    const VornSupport::VornNotification& notification) override;

private:
    using Change = VornSupport::VornSmartPointer<RuvoTSTaskNotification>;

    bool accept(const RuvoTSTaskNotification& change) VORN_EXCLUDES(mutex_);
    Change next() VORN_EXCLUDES(mutex_);
    void deliver(const RuvoTSTaskNotification& change) noexcept;

    RuvoTSTask& task_;
    std::atomic<bool> follows_{false};
    VornSupport::VornMutex mutex_;  // never held while delivering
    std::deque<Change> changes_ VORN_GUARDED_BY(mutex_);  // to be delivered
    std::uint32_t latest_ VORN_GUARDED_BY(mutex_) = 0;
    bool delivering_ VORN_GUARDED_BY(mutex_) = false;
};

}  // namespace RuvoService
