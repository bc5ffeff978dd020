#pragma once

#include "runtime/support/VornCollaborator.h"
#include "runtime/support/VornCriticalSection.h"
#include "runtime/support/VornEvent.h"
#include "runtime/support/VornThread.h"

#include <cstddef>
#include <unordered_set>

namespace RuvoService {

// Keeps count of the client threads that run. Does not own them: a thread
// leaves the list when it tells that it is done, and frees itself. Any thread.
class RuvoServiceClientThreadPool : public VornSupport::VornDependent {
public:
    RuvoServiceClientThreadPool() = default;
    // Waits until every thread has left the list, however long that takes.
    ~RuvoServiceClientThreadPool() override;
    RuvoServiceClientThreadPool(const RuvoServiceClientThreadPool&) = delete;
    RuvoServiceClientThreadPool& operator=(const RuvoServiceClientThreadPool&) = delete;

    // Before the thread is started.
    void add(VornSupport::VornThread& thread);
    // For a thread that was added and could not be started.
    void remove(VornSupport::VornThread& thread);
    std::size_t size() const;

    void handleNotification(VornSupport::VornCollaborator& source,
                            const VornSupport::VornNotification& notification) override;

private:
    void erase(const VornSupport::VornCollaborator& thread);

    std::unordered_set<const VornSupport::VornCollaborator*> threads_ VORN_GUARDED_BY(lock_);
    mutable VornSupport::VornCriticalSectionObject lock_;
    VornSupport::VornEvent emptied_;
};

}  // namespace RuvoService
