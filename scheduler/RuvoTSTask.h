#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornCollaborator.h"
#include "runtime/support/VornCriticalSection.h"
#include "runtime/support/VornObjectBase.h"
#include "runtime/support/VornSmartPointer.h"
#include "scheduler/RuvoTSTime.h"
#include "scheduler/RuvoTSTimer.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace RuvoService {

class RuvoTSTaskDependent;
class RuvoTSTaskNotification;
class RuvoTSTaskThread;

// One scheduled task: waits for its time, runs on a thread of its own, and then
// waits for its next time or is finished. Each change of its state is raised as
// an event (RuvoTSNotifier) and told to its dependents, the clients that follow
// it (RuvoTSTaskDependent).
//
// Counted. Held by the task set, by its timer while that waits, by the thread
// of its run, and by whoever works with it. Any thread. Its lock guards what
// changes; events are produced under it, so that they come in the order of the
// changes, dependents are told without it. It is taken after the task set's
// locks and before those of the timers, the notifier and its queue.
class VORN_EXPORT RuvoTSTask : public VornSupport::VornCollaborator,
                               public VornSupport::VornDependent,
                               public virtual VornSupport::VornObjectBase {
public:
    enum State : std::int32_t { Finished = -1, Running = 0, Ended = 1, Waiting = 2 };
    // Codes beyond these are taken: such a task runs once and stays in Ended.
    enum Frequency : std::uint32_t { Daily = 0, Weekly = 1, Monthly = 2, Once = 3, Soon = 4 };

    static constexpr std::int32_t kNeverRun = -999;  // the status before the first run
    // What a first time that is past, and Frequency::Soon, wait instead.
    static constexpr std::int32_t kFirstDelay = 121;

    // Makes a task and starts its timer: it is in Waiting from here on.
    template <class Task, class... Args>
    static VornSupport::VornSmartPointer<Task> make(Args&&... args) {
        auto task = VornSupport::makeCounted<Task>(std::forward<Args>(args)...);
        task->begin();
        return task;
    }

    ~RuvoTSTask() override;

    // The body of the task's line in the store.
    virtual std::string serialize() const = 0;
    // The time has come: starts a run and returns 0. On a timer thread.
    virtual int performTask() = 0;
    // Does the run on the calling thread and returns its exit status; nothing
    // when the service stops before the end of the run.
    virtual std::optional<std::int32_t> runtaskonsystem() = 0;
    // After a run: sets the next time, or finishes the task. A task that has
    // been cancelled meanwhile stays so.
    virtual void rescheduleTask();
    // "RuvoTSExecTask", "RuvoTSBlobTask": its class name.
    virtual std::string_view kind() const = 0;
    // True when `type` is part of the class name.
    bool isKind(std::string_view type) const { return kind().find(type) != kind().npos; }

    // Stores, raises and tells a state. `status` is told as it is; it becomes
    // the exit status with Ended only. Nothing follows Finished but the end of a
    // run that was under way, which is raised and no longer told.
    void setState(State state, std::int32_t status) VORN_EXCLUDES(lock_);
    // A run begins: Running, unless the task has been finished; then false, and
    // there must be no run. One step. Told once, also when it was postponed.
    bool beginRun() VORN_EXCLUDES(lock_);
    // The run that was to begin did not, for want of memory or a thread: the time
    // comes once more in a second.
    void retryRun() noexcept VORN_EXCLUDES(lock_);
    // The run that has begun was refused a process, for `reason`: it is the same
    // run, and nobody is told, when it is tried again.
    void postponeRun(VornPlatform::OsError reason) noexcept VORN_EXCLUDES(lock_);
    // The run has what it needs, or ends. `got`: it was not refused anything.
    void leavePlace(bool got) noexcept;
    // Has what retryRun() arranged come at once; false when nothing is to come.
    bool hasten() noexcept { return timer_.hasten(); }
    // The timer's time has come, or a run's thread is done. A run that cannot
    // begin is tried again, and so is what follows a run: a shortage ends no task.
    void handleNotification(VornSupport::VornCollaborator& source,
                            const VornSupport::VornNotification& notification) override;

    // Takes the task out of everything but the task set, with the state Finished:
    // its timer does not fire any more, a run that has not begun does not begin.
    // False, and nothing done, when it has been finished before.
    bool finish() VORN_EXCLUDES(lock_);
    // The same without a state: the service stops.
    void retire() VORN_EXCLUDES(lock_);
    bool isFinished() const VORN_EXCLUDES(lock_);

    // Registers a follower with the task, which holds it from then on, and with
    // VornProxyDependentContainer; false when the task is finished. An exception
    // leaves no registration. unfollow() takes back the first one with that name
    // and handle; false when there is none. On return of unfollow() and
    // removeMyProxyDependents() those removed are told no more, also when memory
    // is short; what they have been told is still delivered, for which unfollow()
    // only waits.
    bool follow(const VornSupport::VornSmartPointer<RuvoTSTaskDependent>& follower)
        VORN_EXCLUDES(lock_);
    bool unfollow(const std::string& remoteName, std::int32_t dependentHandle)
        VORN_EXCLUDES(lock_);
    void removeMyProxyDependents() noexcept VORN_EXCLUDES(lock_);

    const std::string& getName() const { return name_; }         // never changes
    std::int32_t getHandle() const { return handle_; }           // never changes
    std::uint32_t getFrequency() const { return frequency_; }    // never changes
    RuvoTSSeconds getNextTime() const VORN_EXCLUDES(lock_);
    RuvoTSSeconds getLastRunTime() const VORN_EXCLUDES(lock_);
    State getState() const VORN_EXCLUDES(lock_);
    std::int32_t getStatus() const VORN_EXCLUDES(lock_);

    // Builds the task's whole line of the store and appends it. What changes the line
    // is done within a RuvoTSTaskSet::RecordChange.
    void appendRecord(std::string& text) VORN_EXCLUDES(lock_);
    int recordsBuiltForTest() const VORN_EXCLUDES(lock_);

protected:
    RuvoTSTask(const std::string& name, RuvoTSSeconds nextTime, std::uint32_t frequency);

    // The parts of performTask. enlist() makes the thread this task's, unless
    // withdraw() follows; launch() starts it, and has the timer try again when
    // the system has no thread.
    void enlist(RuvoTSTaskThread& thread);
    void withdraw(RuvoTSTaskThread& thread);
    void launch(RuvoTSTaskThread& thread) VORN_EXCLUDES(lock_);
    // 16 hexadecimal digits that no other task has.
    std::string identity() const;

private:
    friend class RuvoTSTaskSet;
    friend class RuvoTSRuns;
    using Follower = VornSupport::VornSmartPointer<RuvoTSTaskDependent>;
    struct FollowerKey {
        std::string_view remoteName;
        std::int32_t handle;
    };
    // By handle and remote name; those with the same in the order of following.
    struct FollowerOrder {
        using is_transparent = void;
        static FollowerKey keyOf(const FollowerKey& key) { return key; }
        static FollowerKey keyOf(const Follower& follower);
        template <class A, class B>
        bool operator()(const A& a, const B& b) const {
            const FollowerKey first = keyOf(a);
            const FollowerKey second = keyOf(b);
            if (first.handle != second.handle) return first.handle < second.handle;
            return first.remoteName < second.remoteName;
        }
    };
    using Followers = std::multiset<Follower, FollowerOrder>;

    void begin() VORN_EXCLUDES(lock_);
    void startRun();
    void endRun();
    void letGo() noexcept;  // of timer and line, when it is finished
    // setState(); false when the task had been finished before.
    // Whatever cannot be told for want of memory is lost; the change holds.
    bool change(State state, std::int32_t status) noexcept VORN_EXCLUDES(lock_);
    // The part under the lock. `told`: whether followers are to hear of it.
    RuvoTSTaskNotification changeLocked(State state, std::int32_t status, bool& told) noexcept
        VORN_REQUIRES(lock_);
    void raise(State state) noexcept VORN_REQUIRES(lock_);
    void tell(const RuvoTSTaskNotification& notification) noexcept VORN_EXCLUDES(lock_);
    void startAgain(const char* word, RuvoTSSeconds next) VORN_EXCLUDES(lock_);
    static std::int32_t drawHandle();
    bool addFollower(const Follower& follower) VORN_EXCLUDES(lock_);
    void detach(const Follower& follower) noexcept VORN_EXCLUDES(lock_);
    Follower firstByHand() const noexcept;

    const std::string name_;
    const std::uint64_t number_;  // of all tasks ever made
    std::uint64_t order_ = 0;     // the task set's, under its lock
    // There are a hundred thousand tasks: here no byte is left between the members.
    const std::uint32_t frequency_;
    const std::int32_t handle_;
    struct Place {
        std::uint32_t epoch = 0;
        bool taken = false;
        bool inLine = false;
        bool called = false;  // out of the line, and has not come since
    };
    Place place_;  // RuvoTSRuns', under its lock

    mutable VornSupport::VornCriticalSectionObject lock_;
    RuvoTSSeconds nextTime_ VORN_GUARDED_BY(lock_);
    RuvoTSSeconds lastRunTime_ VORN_GUARDED_BY(lock_) = 0;
    State state_ VORN_GUARDED_BY(lock_) = Waiting;
    std::int32_t status_ VORN_GUARDED_BY(lock_) = kNeverRun;
    std::uint32_t changes_ VORN_GUARDED_BY(lock_) = 0;
    std::uint16_t recordsBuilt_ VORN_GUARDED_BY(lock_) = 0;
    bool finished_ VORN_GUARDED_BY(lock_) = false;
    bool launched_ = false;  // the timer's thread's
    std::unique_ptr<Followers> followers_ VORN_GUARDED_BY(lock_);  // null: nobody
    RuvoTSTimer timer_{*this};  // started under lock_, when not finished_
};

}  // namespace RuvoService
