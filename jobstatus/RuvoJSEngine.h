#pragma once

#include "engines/RuvoEngineBase.h"
#include "jobstatus/RuvoJSIds.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornCollaborator.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornObjectBase.h"
#include "runtime/support/VornSmartPointer.h"

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace RuvoService {

class RuvoNNEngine;

// The engine "JobStatus": a table, in memory, of named jobs whose progress
// clients report and read. Each change of a job is announced as an event
// through the notification engine's queue.
//
// Any thread. One mutex guards the table and the jobs; it is never held while
// a connection is read or written. Events are produced under it, so that the
// events of a job come in the order of its changes; the queue's locks are taken
// after it, and nothing takes it after theirs.
class VORN_EXPORT RuvoJSEngine : public RuvoEngineBase {
public:
    static constexpr std::int32_t kNoSuchJob = -1;

    // One job. Every function is called with the engine's mutex held, or before
    // anybody else knows the job; what never changes may be read at any time.
    class VORN_EXPORT VornJSEJob : public virtual VornSupport::VornObjectBase,
                                   public VornSupport::VornCollaborator {
    public:
        // What the data of a job's event says.
        enum EventCode : std::int32_t { None = -1, Completed = 0, Cancelled, Created, Progressed };

        // Announces the new job. `notifier` is borrowed; null: no events.
        VornJSEJob(const std::string& description, const std::string& name, std::int32_t id,
                   RuvoNNEngine* notifier);
        ~VornJSEJob() override;

        // Each one announces the change.
        void setID(std::int32_t id);
        void setProgress(std::int32_t progress);  // any value
        void cancel();                            // the job stays
        void complete();

        void setMappedIds(std::vector<std::int32_t> ids) { mappedIds_ = std::move(ids); }
        const std::vector<std::int32_t>& getMappedIds() const { return mappedIds_; }
        std::int32_t getID() const { return id_; }
        std::int32_t getProgress() const { return progress_; }
        std::int32_t getEventCode() const { return eventCode_; }
        const std::string& getDescription() const { return description_; }  // never changes
        const std::string& getName() const { return name_; }                // never changes
        const std::string& getText() const { return text_; }                // never changes

    private:
        void announce(EventCode code);

        std::int32_t id_ = -1;
        std::vector<std::int32_t> mappedIds_;  // ids of the caller's own
        const std::string description_;
        const std::string name_;
        const std::string text_ = " ";  // of no use yet
        std::int32_t progress_ = 0;
        std::int32_t eventCode_ = None;
        RuvoNNEngine* const notifier_;
    };

    // `notifier` is borrowed and outlives the engine; null: no events.
    explicit RuvoJSEngine(RuvoNNEngine* notifier);
    ~RuvoJSEngine() override;

    // The work of the commands; each returns what the command answers.
    std::int32_t createJob(const std::string& description, const std::string& name)
        VORN_EXCLUDES(mutex_);
    std::int32_t mapJob(std::int32_t id, std::vector<std::int32_t> ids) VORN_EXCLUDES(mutex_);
    std::int32_t lookupJob(const std::string& name) const VORN_EXCLUDES(mutex_);
    std::int32_t deleteJob(std::int32_t id) VORN_EXCLUDES(mutex_);
    std::int32_t setProgress(std::int32_t id, std::int32_t progress) VORN_EXCLUDES(mutex_);
    std::int32_t getProgress(std::int32_t id) const VORN_EXCLUDES(mutex_);  // 0: no such job
    std::int32_t cancelJob(std::int32_t id) VORN_EXCLUDES(mutex_);

    // Called by the commands that announce a change, no lock held, before they
    // make it: see RuvoNNEngine::waitForRoom.
    void waitForRoom(VornNet::VornConnection& connection);

    // The numbers of the last mapJob(); empty when there is no such job.
    std::vector<std::int32_t> getMappedIds(std::int32_t id) const VORN_EXCLUDES(mutex_);
    std::size_t size() const VORN_EXCLUDES(mutex_);

protected:
    bool initialize() override;
    bool cleanup() override;

private:
    using Job = VornSupport::VornSmartPointer<VornJSEJob>;

    Job findLocked(std::int32_t id) const VORN_REQUIRES(mutex_);
    void storeLocked(const Job& job) VORN_REQUIRES(mutex_);

    RuvoNNEngine* const notifier_;
    mutable VornSupport::VornMutex mutex_;
    std::map<std::int32_t, Job> jobs_ VORN_GUARDED_BY(mutex_);
    // The id of the job of each name; names are unique in the table.
    std::unordered_map<std::string, std::int32_t> byName_ VORN_GUARDED_BY(mutex_);
    RuvoJSIds ids_ VORN_GUARDED_BY(mutex_);
};

}  // namespace RuvoService
