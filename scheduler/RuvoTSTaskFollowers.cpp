// The clients that follow a task.

#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSTask.h"
#include "scheduler/RuvoTSTaskDependent.h"

#include <exception>

namespace RuvoService {

using VornSupport::VornCriticalSection;
using VornSupport::VornSmartPointer;

RuvoTSTask::FollowerKey RuvoTSTask::FollowerOrder::keyOf(const Follower& follower) {
    return {follower->getRemoteName(), follower->getHandle()};
}

bool RuvoTSTask::follow(const VornSmartPointer<RuvoTSTaskDependent>& follower) {
    auto& container = VornNet::VornProxyDependentContainer::getInstance();
    // Before the task knows it: who finishes the task looks there afterwards.
    container.add(follower);
    follower->noteFollows();
    try {
        if (addFollower(follower)) return true;
    } catch (...) {
        detach(follower);
        throw;
    }
    container.removeWithoutWaiting(*follower);
    return false;
}

// False when the task is finished. An exception leaves it unknown here.
bool RuvoTSTask::addFollower(const Follower& follower) {
    VornCriticalSection lock(lock_);
    if (finished_) return false;
    if (!followers_) followers_ = std::make_unique<Followers>();
    const auto place = followers_->insert(follower);
    try {
        addDependent(*follower);
    } catch (...) {
        followers_->erase(place);
        throw;
    }
    return true;
}

bool RuvoTSTask::unfollow(const std::string& remoteName, std::int32_t dependentHandle) {
    VornSmartPointer<RuvoTSTaskDependent> follower;
    {
        VornCriticalSection lock(lock_);
        if (!followers_) return false;
        const auto found = followers_->lower_bound(FollowerKey{remoteName, dependentHandle});
        if (found == followers_->end() || (*found)->getHandle() != dependentHandle ||
            (*found)->getRemoteName() != remoteName) {
            return false;
        }
        follower = *found;
        followers_->erase(found);
    }
    removeDependent(*follower);
    VornNet::VornProxyDependentContainer::getInstance().remove(*follower);
    return true;
}

void RuvoTSTask::removeMyProxyDependents() noexcept {
    std::unique_ptr<Followers> mine;
    {
        VornCriticalSection lock(lock_);
        mine.swap(followers_);
    }
    // Without a lock: this waits for who is being told at this moment.
    if (mine) {
        for (const auto& follower : *mine) detach(follower);
    }
    // A walk over everybody's registrations: only when there is a reason.
    while (RuvoTSTaskDependent::madeByHand() > 0) {
        const Follower follower = firstByHand();
        if (!follower) return;
        detach(follower);
    }
}

void RuvoTSTask::detach(const Follower& follower) noexcept {
    VORN_LOG(4, "RuvoTSTask::removeMy... remove dependent"
                    << " TASK HANDLE=" << handle_
                    << " REFDEPENDENT=" << static_cast<const void*>(follower.get()));
    removeDependent(*follower);
    try {
        VornNet::VornProxyDependentContainer::getInstance().removeWithoutWaiting(*follower);
    } catch (const std::exception& e) {
        // It is out of the container; its connection has to be closed by others.
        VORN_LOG(2, "RuvoTSTask::removeMy... exception: " << e.what());
    }
}

// Who was registered without follow(), if there is anybody.
RuvoTSTask::Follower RuvoTSTask::firstByHand() const noexcept {
    const auto& container = VornNet::VornProxyDependentContainer::getInstance();
    VornCriticalSection lock(container.getlock());
    for (int i = 0; i < container.size(); ++i) {
        auto* const follower = dynamic_cast<RuvoTSTaskDependent*>(container[i].get());
        if (follower != nullptr && &follower->getTask() == this && !follower->follows()) {
            return follower;
        }
    }
    return nullptr;
}

}  // namespace RuvoService
