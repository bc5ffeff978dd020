#include "scheduler/RuvoTSTaskDependent.h"

#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSTask.h"

#include <exception>
#include <utility>

namespace RuvoService {

using VornSupport::VornMutexLock;

namespace {

std::atomic<int> byHand{0};

}  // namespace

RuvoTSTaskDependent::RuvoTSTaskDependent(const std::string& remoteName, std::int32_t handle,
                                         RuvoTSTask& task)
    : VornProxyDependent(remoteName, handle), task_(task) {
    ++byHand;
}

RuvoTSTaskDependent::~RuvoTSTaskDependent() { noteFollows(); }

void RuvoTSTaskDependent::noteFollows() {
    if (!follows_.exchange(true)) --byHand;
}

int RuvoTSTaskDependent::madeByHand() { return byHand; }

void RuvoTSTaskDependent::handleNotification(VornSupport::VornCollaborator& source,
                                             const VornSupport::VornNotification& notification) {
    VORN_LOG(9, "RuvoTSTaskDependent::handleNotification enter"
                    << " REFSOURCE=" << static_cast<const void*>(&source)
                    << " REFNOTIF=" << static_cast<const void*>(&notification));
    const auto* const change = dynamic_cast<const RuvoTSTaskNotification*>(&notification);
    if (change == nullptr) return;
    bool mine = false;
    try {
        mine = accept(*change);
    } catch (const std::exception& e) {
        // This change is lost; those that come, and other followers, are not.
        VORN_LOG(3, "RuvoTSTaskDependent::handleNotification: " << e.what());
    }
    if (!mine) return;
    while (const Change one = next()) deliver(*one);
}

// True when the caller is to deliver what is held.
bool RuvoTSTaskDependent::accept(const RuvoTSTaskNotification& change) {
    VornMutexLock lock(mutex_);
    if (change.getChange() <= latest_) return false;
    latest_ = change.getChange();
    changes_.push_back(VornSupport::makeCounted<RuvoTSTaskNotification>(
        change.getHandle(), change.getState(), change.getStatus(), change.getChange()));
    return !std::exchange(delivering_, true);
}

RuvoTSTaskDependent::Change RuvoTSTaskDependent::next() {
    VornMutexLock lock(mutex_);
    delivering_ = !changes_.empty();
    if (!delivering_) return nullptr;
    Change first = std::move(changes_.front());
    changes_.pop_front();
    return first;
}

// Throws nothing: who delivers must come to the last of the changes.
void RuvoTSTaskDependent::deliver(const RuvoTSTaskNotification& change) noexcept {
    try {
        // It may have been taken back by the notifier's command, which knows
        // nothing of tasks.
        if (!VornNet::VornProxyDependentContainer::getInstance().contains(*this)) return;
        remoteNotify(change);
        VORN_LOG(9, "RuvoTSTaskDependent::handleNotification status2"
                        << " STATE=" << change.getState() << " STATUS=" << change.getStatus());
    } catch (const std::exception& e) {
        VORN_LOG(3, "RuvoTSTaskDependent::handleNotification: " << e.what());
    }
}

void RuvoTSTaskDependent::addContent(VornNet::VornConnection& connection,
                                     const VornSupport::VornNotification& notification) {
    const auto* const change = dynamic_cast<const RuvoTSTaskNotification*>(&notification);
    if (change == nullptr) throw VornSupport::VornException("not a task notification");
    connection.writeInt2(kMarker);
    connection.writeInt2(change->getState());
    connection.writeInt(change->getHandle());
    VORN_LOG(9, "RuvoTSTaskDependent::addContent sent "
                    << " HANDLE=" << change->getHandle() << " STATE=" << change->getState());
}

}  // namespace RuvoService
