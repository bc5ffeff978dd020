#include "scheduler/RuvoTSTaskSet.h"

#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSEscape.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <utility>

namespace RuvoService {

using VornSupport::VornCriticalSection;

namespace {

// Tasks that are taken over into a new store at once: who asks for one meanwhile
// waits for no more than that.
constexpr std::size_t kAtOnce = 512;
// Longer lines are not kept.
constexpr std::size_t kLongestKept = 1024;

// What an index has for a task.
RuvoTSTask* taskOf(const std::pair<const std::int32_t, RuvoTSTask*>& entry) { return entry.second; }
RuvoTSTask* taskOf(RuvoTSTask* entry) { return entry; }

std::atomic<void (*)()> whileWriting{nullptr};
std::atomic<long> retryMs{RuvoTSTaskSet::kRetryMs};

}  // namespace

RuvoTSTaskSet& RuvoTSTaskSet::getInstance() {
    static RuvoTSTaskSet* const instance = new RuvoTSTaskSet;
    return *instance;
}

// The lock lets its holder in again, so `load` may insert.
void RuvoTSTaskSet::open(const std::function<bool()>& load) {
    VornCriticalSection writing(fileLock_);
    VornCriticalSection lock(setLock_);
    count_ = 0;  // a run may have ended after release()
    writable_ = load();
    onDisk_ = written_ = changes_;
    open_ = true;
}

std::vector<RuvoTSTaskSet::Task> RuvoTSTaskSet::release() {
    std::vector<Task> tasks;
    {
        VornCriticalSection writing(fileLock_);
        retrying_ = false;
        VornCriticalSection lock(setLock_);
        while (isBehindLocked()) {
            lock.unlock();
            const bool written = attempt();
            lock.lock();
            if (written) continue;
            VORN_LOG(2, "RuvoTSTaskSet::release: the store is without the latest changes: tasks "
                        "that were removed come back, and some that were added do not");
            break;
        }
        open_ = false;
        count_ = 0;
        byHandle_.clear();
        byName_.clear();
        removed_.clear();
        tasks.reserve(entries_.size());
        for (Entry& entry : entries_) tasks.push_back(std::move(entry.task));
        Entries().swap(entries_);
    }
    retry_.stop();  // waits for a receiver that may wait for the lock
    return tasks;
}

// ---- the table -------------------------------------------------------------------

RuvoTSTaskSet::Task RuvoTSTaskSet::schedule(const std::string& name,
                                            const std::function<Task()>& make) {
    VornCriticalSection lock(setLock_);
    if (!open_) throw VornSupport::VornException("the scheduler has not been started");
    if (firstOf(byName_, std::string_view(name)) != nullptr) return nullptr;
    Task task = make();
    insertLocked(task);
    const std::uint64_t change = ++changes_;
    lock.unlock();
    record(change);
    return task;
}

std::size_t RuvoTSTaskSet::insert(const Task& task, bool recorded) {
    VornCriticalSection lock(setLock_);
    const std::size_t index = insertLocked(task);
    if (!recorded) return index;
    const std::uint64_t change = ++changes_;
    lock.unlock();
    record(change);
    return index;
}

std::size_t RuvoTSTaskSet::insertLocked(const Task& task) {
    const std::size_t before = entries_.size();
    task->order_ = nextPlace_++;
    try {
        entries_.push_back({.task = task});
        byHandle_.emplace(task->getHandle(), task.get());
        byName_.insert(task.get());
    } catch (...) {
        eraseFrom(byHandle_, task->getHandle(), *task);
        if (entries_.size() > before) entries_.pop_back();
        task->retire();  // it is armed, and nobody would find it
        throw;
    }
    ++count_;
    VORN_LOG(9, "RuvoTSTaskSet::insert "
                    << " HANDLE=" << task->getHandle() << " COUNT=" << count_);
    return entries_.size() - 1;
}

void RuvoTSTaskSet::remove(std::int32_t handle) {
    Task removed;  // released after the lock
    VornCriticalSection lock(setLock_);
    if (RuvoTSTask* const task = firstOf(byHandle_, handle)) {
        const auto found = placeLocked(task->order_);
        eraseFrom(byHandle_, handle, *task);
        eraseFrom(byName_, std::string_view(task->getName()), *task);
        removed = std::move(found->task);
        entries_.erase(found);
        rememberLocked({handle, removed->getStatus()});
    }
    --count_;
    VORN_LOG(9, "RuvoTSTaskSet::remove "
                    << " HANDLE=" << handle << " COUNT=" << count_);
    const std::uint64_t change = ++changes_;
    lock.unlock();
    record(change);
}

// Where the first task stands whose place is not before `place`.
RuvoTSTaskSet::Entries::iterator RuvoTSTaskSet::placeLocked(std::uint64_t place) {
    return std::lower_bound(entries_.begin(), entries_.end(), place,
                            [](const Entry& e, std::uint64_t p) { return e.task->order_ < p; });
}

// Null when the task is not in the set.
RuvoTSTaskSet::Entry* RuvoTSTaskSet::entryLocked(const RuvoTSTask& task) {
    const auto found = placeLocked(task.order_);
    return found != entries_.end() && found->task.get() == &task ? &*found : nullptr;
}

void RuvoTSTaskSet::rememberLocked(const Removed& removed) {
    try {
        removed_.push_back(removed);
    } catch (const std::exception&) {
        return;  // its status is forgotten; that it goes must not depend on this
    }
    if (removed_.size() > kRemembered) removed_.pop_front();
}

template <class Index, class Key>
RuvoTSTask* RuvoTSTaskSet::firstOf(const Index& index, const Key& key) {
    RuvoTSTask* first = nullptr;
    for (auto [it, end] = index.equal_range(key); it != end; ++it) {
        RuvoTSTask* const task = taskOf(*it);
        if (first == nullptr || task->order_ < first->order_) first = task;
    }
    return first;
}

template <class Index, class Key>
void RuvoTSTaskSet::eraseFrom(Index& index, const Key& key, const RuvoTSTask& task) {
    const auto [begin, end] = index.equal_range(key);
    const auto found =
        std::find_if(begin, end, [&](const auto& entry) { return taskOf(entry) == &task; });
    if (found != end) index.erase(found);
}

RuvoTSTaskSet::Task RuvoTSTaskSet::find(std::int32_t handle) const {
    VornCriticalSection lock(setLock_);
    return firstOf(byHandle_, handle);
}

RuvoTSTaskSet::Task RuvoTSTaskSet::find(std::string_view name) const {
    VornCriticalSection lock(setLock_);
    return firstOf(byName_, name);
}

std::string RuvoTSTaskSet::getTaskNames(std::string_view type) const {
    constexpr std::size_t kClosing = 3;  // "%00"
    std::string names;
    VornCriticalSection lock(setLock_);
    for (const Entry& entry : entries_) {
        if (!entry.task->isKind(type)) continue;
        names += escapeText(entry.task->getName());
        names.resize(names.size() - kClosing);
        names += ' ';
    }
    return names;
}

std::size_t RuvoTSTaskSet::size() const {
    VornCriticalSection lock(setLock_);
    return entries_.size();
}

std::optional<std::int32_t> RuvoTSTaskSet::lastStatus(std::int32_t handle) const {
    VornCriticalSection lock(setLock_);
    if (const RuvoTSTask* const task = firstOf(byHandle_, handle)) return task->getStatus();
    const auto found = std::find_if(removed_.rbegin(), removed_.rend(),
                                    [&](const Removed& each) { return each.handle == handle; });
    if (found == removed_.rend()) return std::nullopt;
    return found->status;
}

void RuvoTSTaskSet::noteLastStatus(std::int32_t handle, std::int32_t status) {
    VornCriticalSection lock(setLock_);
    const auto found = std::find_if(removed_.rbegin(), removed_.rend(),
                                    [&](const Removed& each) { return each.handle == handle; });
    if (found != removed_.rend()) found->status = status;
}

// ---- the store -------------------------------------------------------------------

void RuvoTSTaskSet::setWhileWritingForTest(void (*hook)()) { whileWriting = hook; }
void RuvoTSTaskSet::setRetryMsForTest(long ms) { retryMs = ms; }

void RuvoTSTaskSet::recordTaskSet() {
    VornCriticalSection lock(setLock_);
    const std::uint64_t change = ++changes_;
    lock.unlock();
    record(change);
}

// Of those that wait here while another one writes, the first writes the changes
// of all.
void RuvoTSTaskSet::record(std::uint64_t change) {
    VORN_LOG(9, "RuvoTSTaskSet::recordTaskSet enter ");
    VornCriticalSection lock(fileLock_);
    if (written_ >= change) return;
    attempt();
    if (store_.lack() == RuvoTSStore::Lack::Nothing || retrying_) return;
    try {
        retry_.start(retryMs, false);
        retrying_ = true;
    } catch (const std::exception&) {
        // No memory for that either: the next change tries it.
    }
}

// False when the store is an older one.
bool RuvoTSTaskSet::attempt() {
    try {
        if (!writeStore()) return false;
        onDisk_ = written_;
        return true;
    } catch (const std::exception& e) {
        store_.abandon(e.what());
        return false;
    }
}

void RuvoTSTaskSet::Retry::timerFired() { getInstance().tryAgain(); }

void RuvoTSTaskSet::tryAgain() {
    VornCriticalSection lock(fileLock_);
    if (!retrying_) return;  // it has been released
    if (store_.lack() == RuvoTSStore::Lack::All) {
        attempt();
    } else {
        store_.flushName();
    }
    if (store_.lack() != RuvoTSStore::Lack::Nothing) return;
    retrying_ = false;
    retry_.stop();  // waits for nothing: this is the receiver
}

bool RuvoTSTaskSet::isBehindLocked() const {
    return open_ && writable_ && onDisk_ < changes_;
}

bool RuvoTSTaskSet::writeStore() {
    std::uint64_t end = 0;
    if (!beginStore(end) || !store_.begin()) return false;
    if (const auto hook = whileWriting.load()) hook();
    // A task that is removed meanwhile may be left out or not: who removed it
    // writes again before anybody is told.
    Unbuilt unbuilt;
    for (std::uint64_t place = 0; appendSome(place, end, unbuilt);) {
        if (unbuilt.task) build(unbuilt);
        unbuilt.task = nullptr;
        store_.settle();
    }
    return store_.finish();
}

// False when there is to be no store. What changes from here on is for the next.
bool RuvoTSTaskSet::beginStore(std::uint64_t& end) {
    VornCriticalSection lock(setLock_);
    if (!open_ || !writable_) return false;
    written_ = changes_;
    end = nextPlace_;
    return true;
}

// Appends lines from `place` on, which moves behind them, up to one that is to be
// built; false when there are no more before `end`.
bool RuvoTSTaskSet::appendSome(std::uint64_t& place, std::uint64_t end, Unbuilt& unbuilt) {
    VornCriticalSection lock(setLock_);
    const auto last = placeLocked(end);
    std::size_t left = kAtOnce;
    for (auto next = placeLocked(place); next != last; ++next) {
        if (left-- == 0) {
            place = next->task->order_;
            return true;
        }
        VORN_LOG(9, "RuvoTSTaskSet::recordTask "
                        << "TASK=" << next->task->getName());
        if (!next->line) {
            unbuilt = {next->task, next->version};
            place = next->task->order_ + 1;
            return true;
        }
        store_.buffer().append(next->line.get(), next->lineSize);
    }
    place = end;
    return left != kAtOnce;
}

void RuvoTSTaskSet::build(const Unbuilt& unbuilt) {
    std::string& buffer = store_.buffer();
    const std::size_t begin = buffer.size();
    unbuilt.task->appendRecord(buffer);
    const std::size_t size = buffer.size() - begin;
    if (size > kLongestKept) return;
    auto line = std::make_unique_for_overwrite<char[]>(size);
    std::copy_n(buffer.data() + begin, size, line.get());
    VornCriticalSection lock(setLock_);
    Entry* const entry = entryLocked(*unbuilt.task);
    if (entry == nullptr || entry->changing || entry->version != unbuilt.version) return;
    entry->line = std::move(line);
    entry->lineSize = static_cast<std::uint32_t>(size);
}

// ---- records that change ---------------------------------------------------------

RuvoTSTaskSet::RecordChange::RecordChange(const RuvoTSTask& task) : task_(task) {
    getInstance().setChanging(task_, true);
}
RuvoTSTaskSet::RecordChange::~RecordChange() { getInstance().setChanging(task_, false); }

void RuvoTSTaskSet::setChanging(const RuvoTSTask& task, bool changing) {
    VornCriticalSection lock(setLock_);
    Entry* const entry = entryLocked(task);
    if (entry == nullptr) return;
    entry->line.reset();
    ++entry->version;
    entry->changing = changing;
}

}  // namespace RuvoService
