#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornCriticalSection.h"
#include "runtime/support/VornSmartPointer.h"
#include "runtime/support/VornTimer.h"
#include "scheduler/RuvoTSStore.h"
#include "scheduler/RuvoTSTask.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace RuvoService {

// The table of live tasks, in the order of insertion, found by handle and by
// name. Each insertion by a command and each removal returns when the store has
// been written with it, or could not be; several that come while a store is
// written share the next one. What could not be written is tried again with the
// next change, every kRetryMs, and when the set is released. Who only looks tasks
// up never waits for the disk, and may find a task that is not in the store yet.
// One a process; open between the engine's initialize() and cleanup(). While it is
// not open it writes nothing: a store that has not been read back must not be
// replaced by one that holds less.
//
// Any thread. fileLock_ is held while a store is written, so it is never taken
// by who holds setLock_; the writer takes setLock_ under it, for moments. Both
// come before a task's lock.
class VORN_EXPORT RuvoTSTaskSet {
public:
    using Task = VornSupport::VornSmartPointer<RuvoTSTask>;

    static RuvoTSTaskSet& getInstance();

    // Has `load` fill the set and lets commands in; commands that come meanwhile
    // wait, as they must not be answered from half of a store. The result of
    // `load` says whether the store may be written; when it throws, the set
    // stays closed.
    void open(const std::function<bool()>& load) VORN_EXCLUDES(setLock_, fileLock_);
    // Gives out all tasks and is empty and closed. The store stays; one that is
    // being written is finished first, and one that lacks a change is written.
    std::vector<Task> release() VORN_EXCLUDES(setLock_, fileLock_);

    // Inserts what `make` returns, and writes the store, unless there is a task
    // of that name: then the result is null and nothing is made.
    // Throws VornException when the set is not open. An exception leaves no task
    // behind; what only the store cannot take is as with a full disk.
    Task schedule(const std::string& name, const std::function<Task()>& make)
        VORN_EXCLUDES(setLock_, fileLock_);
    // Returns the task's index. With `recorded` the store is written.
    std::size_t insert(const Task& task, bool recorded) VORN_EXCLUDES(setLock_);
    // Removes the first task with that handle, if there is one, and writes the
    // store in any case.
    void remove(std::int32_t handle) VORN_EXCLUDES(setLock_, fileLock_);
    // The first one in the order of the set, or null.
    Task find(std::int32_t handle) const VORN_EXCLUDES(setLock_);
    Task find(std::string_view name) const VORN_EXCLUDES(setLock_);
    // The names of the tasks whose class name contains `type`, escaped, without
    // the closing "%00", each with a blank behind it.
    std::string getTaskNames(std::string_view type) const VORN_EXCLUDES(setLock_);
    std::size_t size() const VORN_EXCLUDES(setLock_);
    // The exit status of the last run of a task, also when it is one of the last
    // kRemembered that were removed: a task that runs once is gone before anybody
    // could ask for its status. Empty when the handle is unknown.
    std::optional<std::int32_t> lastStatus(std::int32_t handle) const VORN_EXCLUDES(setLock_);
    static constexpr std::size_t kRemembered = 1024;
    // A run has ended after its task was removed.
    void noteLastStatus(std::int32_t handle, std::int32_t status) VORN_EXCLUDES(setLock_);

    // Writes the store; RuvoTSStore says what becomes of failures.
    void recordTaskSet() VORN_EXCLUDES(setLock_, fileLock_);

    // While a task's record changes: what a store takes from the task from the
    // beginning on is built anew, and what is built before the end is not kept. Its
    // thread holds no lock of the set or the task at either end.
    class VORN_EXPORT RecordChange final {
    public:
        explicit RecordChange(const RuvoTSTask& task);
        ~RecordChange();
        RecordChange(const RecordChange&) = delete;
        RecordChange& operator=(const RecordChange&) = delete;

    private:
        const RuvoTSTask& task_;
    };

    // Between two attempts at a store that could not be written.
    static constexpr long kRetryMs = 5000;
    static void setRetryMsForTest(long ms);
    // Called by who writes a store, when it has begun; null: nothing.
    static void setWhileWritingForTest(void (*hook)());

private:
    RuvoTSTaskSet() = default;

    // A task with its line of the store, which is short; none: it is to be built, or
    // long.
    struct Entry {
        Task task;
        std::unique_ptr<char[]> line = nullptr;
        std::uint32_t lineSize = 0;
        std::uint16_t version = 0;  // of the record; grows
        bool changing = false;
    };
    using Entries = std::vector<Entry>;
    // A task whose line is to be built.
    struct Unbuilt {
        Task task;
        std::uint16_t version = 0;
    };

    std::size_t insertLocked(const Task& task) VORN_REQUIRES(setLock_);
    Entries::iterator placeLocked(std::uint64_t place) VORN_REQUIRES(setLock_);
    Entry* entryLocked(const RuvoTSTask& task) VORN_REQUIRES(setLock_);
    void setChanging(const RuvoTSTask& task, bool changing) VORN_EXCLUDES(setLock_);
    // Returns when the store holds the changes_ up to `change`.
    void record(std::uint64_t change) VORN_EXCLUDES(setLock_, fileLock_);
    bool attempt() VORN_REQUIRES(fileLock_) VORN_EXCLUDES(setLock_);
    void tryAgain() VORN_EXCLUDES(setLock_, fileLock_);
    bool isBehindLocked() const VORN_REQUIRES(fileLock_, setLock_);
    bool writeStore() VORN_REQUIRES(fileLock_) VORN_EXCLUDES(setLock_);
    bool beginStore(std::uint64_t& end) VORN_REQUIRES(fileLock_) VORN_EXCLUDES(setLock_);
    bool appendSome(std::uint64_t& place, std::uint64_t end, Unbuilt& unbuilt)
        VORN_REQUIRES(fileLock_) VORN_EXCLUDES(setLock_);
    void build(const Unbuilt& unbuilt) VORN_REQUIRES(fileLock_) VORN_EXCLUDES(setLock_);
    template <class Index, class Key>
    static RuvoTSTask* firstOf(const Index& index, const Key& key);
    template <class Index, class Key>
    static void eraseFrom(Index& index, const Key& key, const RuvoTSTask& task);

    // The names are the tasks' own.
    static std::string_view nameOf(std::string_view name) { return name; }
    static std::string_view nameOf(const RuvoTSTask* task) { return task->getName(); }
    struct NameHash {
        using is_transparent = void;
        template <class Key>
        std::size_t operator()(const Key& key) const {
            return std::hash<std::string_view>()(nameOf(key));
        }
    };
    struct NameEqual {
        using is_transparent = void;
        template <class A, class B>
        bool operator()(const A& a, const B& b) const {
            return nameOf(a) == nameOf(b);
        }
    };

    mutable VornSupport::VornCriticalSectionObject setLock_;
    Entries entries_ VORN_GUARDED_BY(setLock_);  // by order_, which grows
    // Several tasks may have one key: a store can be edited.
    std::unordered_multimap<std::int32_t, RuvoTSTask*> byHandle_ VORN_GUARDED_BY(setLock_);
    std::unordered_multiset<RuvoTSTask*, NameHash, NameEqual> byName_ VORN_GUARDED_BY(setLock_);
    struct Removed {
        std::int32_t handle;
        std::int32_t status;
    };
    void rememberLocked(const Removed& removed) VORN_REQUIRES(setLock_);
    std::deque<Removed> removed_ VORN_GUARDED_BY(setLock_);  // the latest last
    std::uint64_t nextPlace_ VORN_GUARDED_BY(setLock_) = 0;
    // For the log: insertions less removals, of tasks that were not there as well.
    std::uint32_t count_ VORN_GUARDED_BY(setLock_) = 0;
    bool open_ VORN_GUARDED_BY(setLock_) = false;
    bool writable_ VORN_GUARDED_BY(setLock_) = false;
    std::uint64_t changes_ VORN_GUARDED_BY(setLock_) = 0;  // that are to be in the store

    VornSupport::VornCriticalSectionObject fileLock_;
    RuvoTSStore store_ VORN_GUARDED_BY(fileLock_);
    std::uint64_t written_ VORN_GUARDED_BY(fileLock_) = 0;  // of changes_, or tried
    std::uint64_t onDisk_ VORN_GUARDED_BY(fileLock_) = 0;   // of changes_
    // Fires while the store lacks something; never waited for under fileLock_.
    class Retry : public VornSupport::VornTimer {
        void timerFired() override;
    };
    Retry retry_;
    bool retrying_ VORN_GUARDED_BY(fileLock_) = false;
};

}  // namespace RuvoService
