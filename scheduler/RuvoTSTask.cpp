#include "scheduler/RuvoTSTask.h"

#include "runtime/net/VornDeliveryGathering.h"
#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/support/VornHex.h"
#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSClock.h"
#include "scheduler/RuvoTSHandles.h"
#include "scheduler/RuvoTSNotifications.h"
#include "scheduler/RuvoTSNotifier.h"
#include "scheduler/RuvoTSRecord.h"
#include "scheduler/RuvoTSRuns.h"
#include "scheduler/RuvoTSTaskDependent.h"
#include "scheduler/RuvoTSTaskSet.h"
#include "scheduler/RuvoTSTaskThread.h"

#include <algorithm>

namespace RuvoService {

using VornSupport::VornCriticalSection;
using VornSupport::VornSmartPointer;

namespace {

constexpr int kMostDraws = 100;
constexpr std::int32_t kRetrySeconds = 1;  // while the system has no thread to give

}  // namespace

RuvoTSTask::RuvoTSTask(const std::string& name, RuvoTSSeconds nextTime, std::uint32_t frequency)
    : name_(name),
      number_(countTask()),
      frequency_(frequency),
      handle_(drawHandle()),
      nextTime_(nextTime) {
    timer_.addDependent(*this);
}

RuvoTSTask::~RuvoTSTask() = default;

std::int32_t RuvoTSTask::drawHandle() {
    const RuvoTSTaskSet& set = RuvoTSTaskSet::getInstance();
    std::int32_t handle = RuvoTSHandles::draw();
    for (int draws = 1; draws < kMostDraws && set.find(handle); ++draws) {
        handle = RuvoTSHandles::draw();
    }
    return handle;
}

std::string RuvoTSTask::identity() const {
    const std::uint64_t identity = identityOf(number_);
    return VornSupport::VornBytesToHex(&identity, sizeof identity);
}

// Apart from the constructor, so that the timer fires on a task that is whole.
void RuvoTSTask::begin() {
    // Read once: a second that begins in between would make it late.
    const std::int64_t now = RuvoTSClock::current().wallMs();
    std::int32_t delta = secondsUntil(getNextTime(), now);
    const bool late = delta < 1 || frequency_ == Soon;
    if (late) delta = kFirstDelay;
    setState(Waiting, 0);
    VornCriticalSection lock(lock_);
    if (late) {
        timer_.startToWait(delta);
    } else {
        timer_.startToTime(delta, now);
    }
}

// ---- states ----------------------------------------------------------------------

void RuvoTSTask::setState(State state, std::int32_t status) { change(state, status); }

bool RuvoTSTask::change(State state, std::int32_t status) {
    VornCriticalSection lock(lock_);
    if (finished_ && state != Ended) return false;
    state_ = state;
    if (state == Ended) status_ = status;
    const bool told = !finished_;
    if (state == Finished) finished_ = true;
    const auto notification = VornSupport::makeCounted<RuvoTSTaskNotification>(
        handle_, state, status, ++changes_);
    RuvoTSNotifier::getInstance().raise(handle_, state);
    lock.unlock();
    if (told) tell(*notification);
    return told;
}

// Neither a run nor a cancel waits for followers that cannot be reached.
void RuvoTSTask::tell(const RuvoTSTaskNotification& notification) {
    if (VornNet::VornDeliveryGathering::current() != nullptr) return notify(notification);
    VornNet::VornDeliveryGathering gathering;
    notify(notification);
    gathering.handOver();
}

void RuvoTSTask::handleNotification(VornSupport::VornCollaborator& source,
                                    const VornSupport::VornNotification& notification) {
    const std::string kindOfNotification = notification.getClassName();
    if (kindOfNotification.find("RuvoTSTimer") != std::string::npos) {
        const auto run = RuvoTSRuns::getInstance().begin();
        if (run) performTask();
    } else if (kindOfNotification.find("RuvoTSThreadDone") != std::string::npos) {
        source.removeDependent(*this);
        rescheduleTask();
    }
}

void RuvoTSTask::rescheduleTask() {
    {
        VornCriticalSection lock(lock_);
        VORN_LOG(4, "RuvoTSTask::rescheduleTask "
                        << " TASK=" << name_ << " TIME=" << displayTime(nextTime_)
                        << " STATUS=" << status_);
        lastRunTime_ = currentTime();
        if (finished_) return;
    }
    // Counted from the last time it was due, not from now, so that a late run
    // does not move the time of day.
    const RuvoTSSeconds last = getNextTime();
    switch (frequency_) {
        case Daily: return startAgain("DAILY ", addDays(last, 1));
        case Weekly: return startAgain("WEEKLY ", addDays(last, 7));
        case Monthly: return startAgain("MONTHLY ", addMonths(last, 1));
        case Once:
        case Soon:
            if (!finish()) return;
            removeMyProxyDependents();
            RuvoTSTaskSet::getInstance().remove(handle_);
            return;
        default: return;  // it stays as it is, for good
    }
}

void RuvoTSTask::startAgain(const char* word, RuvoTSSeconds next) {
    const std::int64_t now = RuvoTSClock::current().wallMs();
    const std::int32_t delta = secondsUntil(next, now);
    {
        VornCriticalSection lock(lock_);
        nextTime_ = next;
        std::string().swap(record_);
        if (!finished_) timer_.startToTime(delta, now);
    }
    setState(Waiting, 0);
    VORN_LOG(4, "RuvoTSTask::rescheduleTask " << word << " DELTATIME=" << delta);
}

bool RuvoTSTask::finish() {
    if (!change(Finished, 0)) return false;
    timer_.disarm();
    return true;
}

void RuvoTSTask::retire() {
    {
        VornCriticalSection lock(lock_);
        finished_ = true;
    }
    timer_.disarm();
}

bool RuvoTSTask::isFinished() const {
    VornCriticalSection lock(lock_);
    return finished_;
}

// ---- runs ------------------------------------------------------------------------

void RuvoTSTask::enlist(RuvoTSTaskThread& thread) {
    thread.setTask(this);
    thread.setMarkForDeath();
    thread.addDependent(*this);
}

void RuvoTSTask::withdraw(RuvoTSTaskThread& thread) {
    thread.removeDependent(*this);
    thread.setTask(nullptr);
}

void RuvoTSTask::launch(RuvoTSTaskThread& thread) {
    if (thread.start()) return;
    withdraw(thread);
    VornCriticalSection lock(lock_);
    if (!finished_) timer_.startToWait(kRetrySeconds);
}

// ---- followers -------------------------------------------------------------------

bool RuvoTSTask::follow(const VornSmartPointer<RuvoTSTaskDependent>& follower) {
    auto& container = VornNet::VornProxyDependentContainer::getInstance();
    container.add(follower);
    {
        // Who finishes the task looks for its followers afterwards.
        VornCriticalSection lock(lock_);
        if (!finished_) {
            followers_.push_back(follower);
            addDependent(*follower);
            return true;
        }
    }
    container.removeWithoutWaiting(*follower);
    return false;
}

bool RuvoTSTask::unfollow(const std::string& remoteName, std::int32_t dependentHandle) {
    VornSmartPointer<RuvoTSTaskDependent> follower;
    {
        VornCriticalSection lock(lock_);
        const auto found =
            std::find_if(followers_.begin(), followers_.end(), [&](const auto& candidate) {
                return candidate->getHandle() == dependentHandle &&
                       candidate->getRemoteName() == remoteName;
            });
        if (found == followers_.end()) return false;
        follower = *found;
        followers_.erase(found);
    }
    removeDependent(*follower);
    VornNet::VornProxyDependentContainer::getInstance().remove(*follower);
    return true;
}

void RuvoTSTask::removeMyProxyDependents() {
    std::vector<VornSmartPointer<RuvoTSTaskDependent>> mine;
    {
        VornCriticalSection lock(lock_);
        mine.swap(followers_);
    }
    // Without a lock: this waits for who is being told at this moment.
    for (const auto& follower : mine) {
        VORN_LOG(4, "RuvoTSTask::removeMy... remove dependent"
                        << " TASK HANDLE=" << handle_
                        << " REFDEPENDENT=" << static_cast<const void*>(follower.get()));
        removeDependent(*follower);
        VornNet::VornProxyDependentContainer::getInstance().removeWithoutWaiting(*follower);
    }
}

// ---- fields ----------------------------------------------------------------------

RuvoTSSeconds RuvoTSTask::getNextTime() const {
    VornCriticalSection lock(lock_);
    return nextTime_;
}

RuvoTSSeconds RuvoTSTask::getLastRunTime() const {
    VornCriticalSection lock(lock_);
    return lastRunTime_;
}

RuvoTSTask::State RuvoTSTask::getState() const {
    VornCriticalSection lock(lock_);
    return state_;
}

std::int32_t RuvoTSTask::getStatus() const {
    VornCriticalSection lock(lock_);
    return status_;
}

void RuvoTSTask::appendRecord(std::string& text) {
    VornCriticalSection lock(lock_);
    if (record_.empty()) {
        record_ = recordLine(serialize());
        ++recordsBuilt_;
    }
    text += record_;
}

int RuvoTSTask::recordsBuiltForTest() const {
    VornCriticalSection lock(lock_);
    return recordsBuilt_;
}

}  // namespace RuvoService
