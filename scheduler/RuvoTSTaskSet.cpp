#include "scheduler/RuvoTSTaskSet.h"

#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSEscape.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace RuvoService {

using VornSupport::VornCriticalSection;

RuvoTSTaskSet& RuvoTSTaskSet::getInstance() {
    static RuvoTSTaskSet* const instance = new RuvoTSTaskSet;
    return *instance;
}

// The lock lets its holder in again, so `load` may insert.
void RuvoTSTaskSet::open(const std::function<bool()>& load) {
    VornCriticalSection lock(setLock_);
    writable_ = load();
    open_ = true;
}

std::vector<RuvoTSTaskSet::Task> RuvoTSTaskSet::release() {
    VornCriticalSection lock(setLock_);
    open_ = false;
    count_ = 0;
    byHandle_.clear();
    byName_.clear();
    removed_.clear();
    return std::exchange(tasks_, {});
}

// ---- the table -------------------------------------------------------------------

RuvoTSTaskSet::Task RuvoTSTaskSet::schedule(const std::string& name,
                                            const std::function<Task()>& make) {
    VornCriticalSection lock(setLock_);
    if (!open_) throw VornSupport::VornException("the scheduler has not been started");
    if (firstOf(byName_, std::string_view(name)) != nullptr) return nullptr;
    Task task = make();
    insertLocked(task);
    recordLocked();
    return task;
}

std::size_t RuvoTSTaskSet::insert(const Task& task, bool record) {
    VornCriticalSection lock(setLock_);
    const std::size_t index = insertLocked(task);
    if (record) recordLocked();
    return index;
}

std::size_t RuvoTSTaskSet::insertLocked(const Task& task) {
    const std::size_t before = tasks_.size();
    task->place_ = nextPlace_++;
    try {
        tasks_.push_back(task);
        byHandle_.emplace(task->getHandle(), task.get());
        byName_.emplace(task->getName(), task.get());
    } catch (...) {
        eraseFrom(byHandle_, task->getHandle(), *task);
        tasks_.resize(before);
        task->retire();  // it is armed, and nobody would find it
        throw;
    }
    ++count_;
    VORN_LOG(9, "RuvoTSTaskSet::insert "
                    << " HANDLE=" << task->getHandle() << " COUNT=" << count_);
    return tasks_.size() - 1;
}

void RuvoTSTaskSet::remove(std::int32_t handle) {
    Task removed;  // released after the lock
    VornCriticalSection lock(setLock_);
    if (RuvoTSTask* const task = firstOf(byHandle_, handle)) {
        const auto found =
            std::lower_bound(tasks_.begin(), tasks_.end(), task->place_,
                             [](const Task& t, std::uint64_t place) { return t->place_ < place; });
        eraseFrom(byHandle_, handle, *task);
        eraseFrom(byName_, std::string_view(task->getName()), *task);
        removed = std::move(*found);
        tasks_.erase(found);
        rememberLocked({handle, removed->getStatus()});
    }
    // A run may end between release() and the retirement of its task.
    if (count_ > 0) --count_;
    VORN_LOG(9, "RuvoTSTaskSet::remove "
                    << " HANDLE=" << handle << " COUNT=" << count_);
    recordLocked();
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
        if (first == nullptr || it->second->place_ < first->place_) first = it->second;
    }
    return first;
}

template <class Index, class Key>
void RuvoTSTaskSet::eraseFrom(Index& index, const Key& key, const RuvoTSTask& task) {
    const auto [begin, end] = index.equal_range(key);
    const auto found =
        std::find_if(begin, end, [&](const auto& entry) { return entry.second == &task; });
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
    for (const Task& task : tasks_) {
        if (!task->isKind(type)) continue;
        names += escapeText(task->getName());
        names.resize(names.size() - kClosing);
        names += ' ';
    }
    return names;
}

std::size_t RuvoTSTaskSet::size() const {
    VornCriticalSection lock(setLock_);
    return tasks_.size();
}

std::optional<std::int32_t> RuvoTSTaskSet::lastStatus(std::int32_t handle) const {
    VornCriticalSection lock(setLock_);
    if (const RuvoTSTask* const task = firstOf(byHandle_, handle)) return task->getStatus();
    const auto found = std::find_if(removed_.rbegin(), removed_.rend(),
                                    [&](const Removed& each) { return each.handle == handle; });
    if (found == removed_.rend()) return std::nullopt;
    return found->status;
}

// ---- the store -------------------------------------------------------------------

void RuvoTSTaskSet::recordTaskSet() {
    VornCriticalSection lock(setLock_);
    recordLocked();
}

void RuvoTSTaskSet::recordLocked() {
    VORN_LOG(9, "RuvoTSTaskSet::recordTaskSet enter ");
    if (!open_ || !writable_) return;
    VornCriticalSection lock(fileLock_);
    try {
        if (!store_.begin()) return;
        for (const Task& task : tasks_) {
            task->appendRecord(store_.buffer());
            store_.settle();
            VORN_LOG(9, "RuvoTSTaskSet::recordTask "
                            << "TASK=" << task->getName());
        }
        store_.finish();
    } catch (const std::exception& e) {
        store_.abandon(e.what());
    }
}

}  // namespace RuvoService
