#include "scheduler/RuvoTSTask.h"

#include "runtime/net/VornDeliveryGathering.h"
#include "runtime/support/VornHex.h"
#include "runtime/support/VornIdleThreads.h"
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

#include <exception>
#include <typeinfo>

namespace RuvoService {

using VornSupport::VornCriticalSection;

namespace {

constexpr int kMostDraws = 100;

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

void RuvoTSTask::setState(State state, std::int32_t status) {
    if (change(state, status) || state != Ended) return;
    // It was cancelled during the run, and the set has its status from before.
    RuvoTSTaskSet::getInstance().noteLastStatus(handle_, status);
}

bool RuvoTSTask::change(State state, std::int32_t status) noexcept {
    VornCriticalSection lock(lock_);
    if (finished_ && state != Ended) return false;
    bool told = false;
    const RuvoTSTaskNotification notification = changeLocked(state, status, told);
    lock.unlock();
    if (told) tell(notification);
    return told;
}

RuvoTSTaskNotification RuvoTSTask::changeLocked(State state, std::int32_t status,
                                                bool& told) noexcept {
    state_ = state;
    if (state == Ended) status_ = status;
    told = !finished_;
    if (state == Finished) finished_ = true;
    raise(state);
    return {handle_, state, status, ++changes_};
}

void RuvoTSTask::raise(State state) noexcept {
    try {
        RuvoTSNotifier::getInstance().raise(handle_, state);
    } catch (const std::exception& e) {
        VORN_LOG(2, "RuvoTSTask::setState: the event of a state is lost: " << e.what());
    }
}

// Neither a run nor a cancel waits for followers that cannot be reached.
void RuvoTSTask::tell(const RuvoTSTaskNotification& notification) noexcept {
    try {
        if (VornNet::VornDeliveryGathering::current() != nullptr) return notify(notification);
        VornNet::VornDeliveryGathering gathering;
        notify(notification);
        gathering.handOver();
    } catch (const std::exception& e) {
        VORN_LOG(2, "RuvoTSTask::setState: not every follower was told: " << e.what());
    }
}

void RuvoTSTask::handleNotification(VornSupport::VornCollaborator& source,
                                    const VornSupport::VornNotification& notification) {
    // Not getClassName(), whose copy takes memory. This one has the class's name
    // in it, among others.
    const std::string_view name = typeid(notification).name();
    if (name.find("RuvoTSTimer") != name.npos) {
        const auto run = RuvoTSRuns::getInstance().begin();
        if (run) startRun();
    } else if (name.find("RuvoTSThreadDone") != name.npos) {
        try {
            source.removeDependent(*this);
        } catch (const std::exception& e) {
            // The thread goes now and tells nobody any more.
            VORN_LOG(3, "RuvoTSTask::handleNotification: exception: " << e.what());
        }
        endRun();
    }
}

void RuvoTSTask::startRun() {
    if (!RuvoTSRuns::getInstance().takePlace(*this)) return retryRun();
    launched_ = false;
    try {
        performTask();
    } catch (const std::exception& e) {
        VORN_LOG(2, "RuvoTSTask::performTask: " << name_ << ": " << e.what());
        if (!launched_) retryRun();
    }
    // From its start on the place is the thread's, which may be over by now.
    if (!launched_) leavePlace(false);
}

void RuvoTSTask::leavePlace(bool got) noexcept {
    RuvoTSRuns::getInstance().leavePlace(*this, got);
}

bool RuvoTSTask::beginRun() {
    {
        VornCriticalSection lock(lock_);
        if (state_ == Running && !finished_) return true;
    }
    return change(Running, 0);
}

void RuvoTSTask::postponeRun(VornPlatform::OsError reason) noexcept {
    RuvoTSRuns::getInstance().noteShortage(*this, reason);
    leavePlace(false);
    VornSupport::endIdleTimerThreads();
    retryRun();
}

void RuvoTSTask::retryRun() noexcept {
    if (!isFinished()) {
        timer_.startToRetry();
        if (RuvoTSRuns::getInstance().isCalled(*this)) hasten();
    }
    // It may have been finished meanwhile, before its timer was armed, and before it
    // stood in line.
    if (isFinished()) letGo();
}

void RuvoTSTask::endRun() {
    for (;;) {
        try {
            return rescheduleTask();
        } catch (const std::exception& e) {
            VORN_LOG(2, "RuvoTSTask::rescheduleTask: " << name_ << ": " << e.what());
        }
        if (!RuvoTSRuns::getInstance().pauseForShortage()) return;
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
    const RuvoTSTaskSet::RecordChange change(*this);
    {
        // One step: a next run that is due at once must not begin before this one
        // has been left behind.
        VornCriticalSection lock(lock_);
        // First what may fail: it is tried again then, with the same time.
        if (!finished_) timer_.startToTime(delta, now);
        nextTime_ = next;
        if (!finished_) {
            bool told = false;
            const RuvoTSTaskNotification waits = changeLocked(Waiting, 0, told);
            lock.unlock();
            tell(waits);
        }
    }
    VORN_LOG(4, "RuvoTSTask::rescheduleTask " << word << " DELTATIME=" << delta);
}

bool RuvoTSTask::finish() {
    if (!change(Finished, 0)) return false;
    letGo();
    return true;
}

void RuvoTSTask::letGo() noexcept {
    timer_.disarm();
    RuvoTSRuns::getInstance().leaveLine(*this);
}

void RuvoTSTask::retire() {
    {
        VornCriticalSection lock(lock_);
        finished_ = true;
    }
    letGo();
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
    RuvoTSRuns& runs = RuvoTSRuns::getInstance();
    if (!runs.isCrowded()) {
        launched_ = thread.start();
        if (launched_) return;
        runs.noteShortage(*this, {});
    }
    withdraw(thread);
    VornSupport::endIdleTimerThreads();
    retryRun();
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
    ++recordsBuilt_;
    appendRecordLine(text, serialize());
}

int RuvoTSTask::recordsBuiltForTest() const {
    VornCriticalSection lock(lock_);
    return recordsBuilt_;
}

}  // namespace RuvoService
