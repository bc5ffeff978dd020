#include "runtime/support/VornCollaborator.h"

#include "runtime/support/VornSmartPointer.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <new>
#include <optional>
#include <set>
#include <thread>
#include <utility>

namespace VornSupport {
namespace {

// Up to so many dependents are looked through; most objects have one or none.
constexpr std::size_t kUnindexed = 16;

std::atomic<std::uint64_t> steps{0};

void countSteps(std::size_t count) { steps.fetch_add(count, std::memory_order_relaxed); }

}  // namespace

VornNotification::~VornNotification() = default;
VornDependent::~VornDependent() = default;

void VornDependent::handleNotification(VornCollaborator&, const VornNotification&) {}

// Has a lock of its own, so that a notify that goes through thousands of them
// does not meet those that come and go meanwhile. Taken after the collaborator's.
struct VornCollaborator::Registration {
    // With room for the one notify that is the rule.
    explicit Registration(VornDependent& d) : dependent(d) { runningOn.reserve(1); }

    bool runsElsewhereLocked() const VORN_REQUIRES(mutex) {
        const auto here = std::this_thread::get_id();
        return std::any_of(runningOn.begin(), runningOn.end(),
                           [here](std::thread::id id) { return id != here; });
    }
    bool runsElsewhere() VORN_EXCLUDES(mutex) {
        VornMutexLock lock(mutex);
        return runsElsewhereLocked();
    }
    // False when the dependent is not to be called any more.
    bool enter() VORN_EXCLUDES(mutex) {
        VornMutexLock lock(mutex);
        if (removed) return false;
        runningOn.push_back(std::this_thread::get_id());
        return true;
    }
    bool isRemoved() VORN_EXCLUDES(mutex) {
        VornMutexLock lock(mutex);
        return removed;
    }

    VornDependent& dependent;  // gone, perhaps, once it is removed
    std::uint64_t number = 0;  // in the list; the collaborator's, under its lock
    VornMutex mutex;
    bool removed VORN_GUARDED_BY(mutex) = false;
    // One entry a handler call under way.
    std::vector<std::thread::id> runningOn VORN_GUARDED_BY(mutex);
    VornCondition handlerLeft;
    // While it is in the chain of those that leave, which keeps it alive. The
    // collaborator's, under its lock.
    RegistrationPtr self;
    Registration* nextLeaving = nullptr;
};

// The threads that wait in removeDependent of any collaborator, each with the
// threads whose handlers it waits for. Its lock is taken last of all.
class VornCollaborator::RemovalWaits {
public:
    struct Wait {
        std::thread::id waiter;
        const Registration* registration;
        std::vector<std::thread::id> on;
    };

    static RemovalWaits& getInstance() {
        static RemovalWaits* const instance = new RemovalWaits;  // outlives every thread
        return *instance;
    }

    // False, and nothing is noted, when one of the threads waited for waits in
    // its turn, directly or through others, for the waiter.
    bool begin(Wait& wait) {
        VornMutexLock lock(mutex_);
        if (leadsToLocked(wait.on, wait.waiter)) return false;
        waits_.push_back(&wait);
        return true;
    }
    void end(const Wait& wait) {
        VornMutexLock lock(mutex_);
        waits_.erase(std::find(waits_.begin(), waits_.end(), &wait));
    }
    void handlerLeft(const Registration& registration, std::thread::id thread) {
        VornMutexLock lock(mutex_);
        for (Wait* wait : waits_) {
            if (wait->registration != &registration) continue;
            const auto found = std::find(wait->on.begin(), wait->on.end(), thread);
            if (found != wait->on.end()) wait->on.erase(found);
        }
    }

private:
    // A thread waits once at a time, so this visits every wait once at most.
    bool leadsToLocked(std::vector<std::thread::id> threads, std::thread::id goal) const
        VORN_REQUIRES(mutex_) {
        std::vector<Wait*> unseen = waits_;
        while (!threads.empty()) {
            const std::thread::id thread = threads.back();
            threads.pop_back();
            if (thread == goal) return true;
            const auto next =
                std::find_if(unseen.begin(), unseen.end(),
                             [thread](const Wait* wait) { return wait->waiter == thread; });
            if (next == unseen.end()) continue;
            threads.insert(threads.end(), (*next)->on.begin(), (*next)->on.end());
            unseen.erase(next);
        }
        return false;
    }

    VornMutex mutex_;
    std::vector<Wait*> waits_ VORN_GUARDED_BY(mutex_);
};

VornCollaborator::VornCollaborator() = default;
VornCollaborator::VornCollaborator(const VornCollaborator&) : VornCollaborator() {}
VornCollaborator::~VornCollaborator() = default;

// Who depends, and the number of the registration.
struct VornCollaborator::Index {
    std::set<std::pair<const VornDependent*, std::uint64_t>> entries;
};

// A walk looks at the entries only; the rest is under the mutex.
struct VornCollaborator::List {
    Registrations entries;         // by their numbers
    std::size_t removed = 0;       // that are still among the entries
    std::unique_ptr<Index> index;  // null: few dependents
    std::atomic<int> walks{0};     // of notify, under way; begun under the mutex
};

std::uint64_t VornCollaborator::stepsForTest() { return steps.load(std::memory_order_relaxed); }

// The entries, in a list that no notify walks.
VornCollaborator::Registrations& VornCollaborator::ownListLocked() {
    // What the last walk read, it read before it took itself off the count.
    if (!registrations_ || registrations_->walks.load(std::memory_order_acquire) != 0) {
        auto list = std::make_shared<List>();
        if (registrations_) {
            countSteps(registrations_->entries.size());
            list->entries.reserve(registrations_->entries.size() - registrations_->removed);
            for (const auto& entry : registrations_->entries) {
                if (!entry->isRemoved()) list->entries.push_back(entry);
            }
            list->index = std::move(registrations_->index);
        }
        registrations_ = std::move(list);
    }
    return registrations_->entries;
}

void VornCollaborator::addDependent(VornDependent& dependent) {
    auto registration = std::make_shared<Registration>(dependent);
    VornMutexLock lock(mutex_);
    Registrations& list = ownListLocked();
    registration->number = list.empty() ? 0 : list.back()->number + 1;
    list.push_back(std::move(registration));
    try {
        indexLastLocked();
    } catch (...) {
        list.pop_back();
        throw;
    }
}

// Of many dependents each can leave without a look at the others.
void VornCollaborator::indexLastLocked() {
    const Registrations& list = registrations_->entries;
    if (registrations_->index) {
        registrations_->index->entries.emplace(&list.back()->dependent, list.back()->number);
    } else if (list.size() > kUnindexed) {
        auto index = std::make_unique<Index>();
        for (const auto& entry : list) {
            if (!entry->isRemoved()) index->entries.emplace(&entry->dependent, entry->number);
        }
        registrations_->index = std::move(index);
    }
}

void VornCollaborator::removeDependent(VornDependent& dependent) noexcept {
    {
        VornMutexLock lock(mutex_);
        takeOutLocked(dependent);
    }
    while (const RegistrationPtr running = runningElsewhere(dependent)) {
        VornMutexLock lock(running->mutex);
        std::optional<RemovalWaits::Wait> wait;
        try {
            const auto here = std::this_thread::get_id();
            wait = RemovalWaits::Wait{here, running.get(), running->runningOn};
            std::erase(wait->on, here);
            if (!RemovalWaits::getInstance().begin(*wait)) return;
        } catch (const std::bad_alloc&) {
            wait.reset();  // waits without being noted
        }
        while (running->runsElsewhereLocked()) running->handlerLeft.wait(running->mutex);
        if (wait) RemovalWaits::getInstance().end(*wait);
    }
}

void VornCollaborator::takeOutLocked(const VornDependent& dependent) {
    Registration* const found = findLocked(dependent);
    if (found == nullptr) return;
    {
        VornMutexLock lock(found->mutex);
        if (!found->runningOn.empty()) {
            found->self = placeLocked(found->number);
            found->nextLeaving = std::exchange(leaving_, found);
        }
        found->removed = true;
    }
    if (const auto& index = registrations_->index) {
        index->entries.erase({&dependent, found->number});
    }
    ++registrations_->removed;
    tidyLocked();
}

// The earliest registration of the dependent.
VornCollaborator::Registration* VornCollaborator::findLocked(
    const VornDependent& dependent) const {
    if (!registrations_) return nullptr;
    if (const auto& index = registrations_->index) {
        const auto found = index->entries.lower_bound({&dependent, 0});
        if (found == index->entries.end() || found->first != &dependent) return nullptr;
        return placeLocked(found->second).get();
    }
    countSteps(registrations_->entries.size());
    for (const auto& entry : registrations_->entries) {
        if (&entry->dependent == &dependent && !entry->isRemoved()) return entry.get();
    }
    return nullptr;
}

const VornCollaborator::RegistrationPtr& VornCollaborator::placeLocked(
    std::uint64_t number) const {
    countSteps(1);
    const auto& entries = registrations_->entries;
    return *std::lower_bound(
        entries.begin(), entries.end(), number,
        [](const RegistrationPtr& entry, std::uint64_t n) { return entry->number < n; });
}

// Drops those that were removed once they are the half: so each costs two moves.
void VornCollaborator::tidyLocked() noexcept {
    const List& list = *registrations_;
    if (list.removed == list.entries.size()) {
        registrations_ = nullptr;
    } else if (2 * list.removed >= list.entries.size()) {
        try {
            Registrations& own = ownListLocked();
            if (std::exchange(registrations_->removed, 0) == 0) return;  // a copy without them
            countSteps(own.size());
            std::erase_if(own, [](const auto& entry) { return entry->isRemoved(); });
        } catch (const std::exception&) {
            // No memory: the next one tries.
        }
    }
}

// A removed registration of the dependent whose handler runs on another thread.
VornCollaborator::RegistrationPtr VornCollaborator::runningElsewhere(
    const VornDependent& dependent) const {
    VornMutexLock lock(mutex_);
    for (Registration* entry = leaving_; entry != nullptr; entry = entry->nextLeaving) {
        if (&entry->dependent == &dependent && entry->runsElsewhere()) return entry->self;
    }
    return nullptr;
}

// As long as the call counts as under way, whoever removes the dependent waits,
// and this object is there.
void VornCollaborator::leave(Registration& registration) {
    const auto here = std::this_thread::get_id();
    auto& running = registration.runningOn;
    {
        VornMutexLock lock(registration.mutex);
        if (!registration.removed) {
            running.erase(std::find(running.begin(), running.end(), here));
            return;
        }
    }
    VornMutexLock lock(mutex_);
    VornMutexLock registrationLock(registration.mutex);
    running.erase(std::find(running.begin(), running.end(), here));
    if (running.empty()) {
        Registration** link = &leaving_;
        while (*link != nullptr && *link != &registration) link = &(*link)->nextLeaving;
        if (*link != nullptr) *link = registration.nextLeaving;
        registration.self = nullptr;  // the walk has it still
    }
    RemovalWaits::getInstance().handlerLeft(registration, here);
    registration.handlerLeft.notifyAll();
}

void VornCollaborator::notify(const VornNotification& notification) {
    std::shared_ptr<List> list;
    {
        VornMutexLock lock(mutex_);
        if (!registrations_) return;
        list = registrations_;
        list->walks.fetch_add(1, std::memory_order_relaxed);
    }
    // Touches the list only: once the last handler has been left, the source may
    // be gone.
    struct Walk {
        List& list;
        ~Walk() { list.walks.fetch_sub(1, std::memory_order_release); }
    };
    const Walk walk{*list};

    // An object that nothing counts yet (count 0: on the stack, or still under
    // construction) must not be released by us.
    auto* counted = dynamic_cast<VornObjectBase*>(this);
    const VornSmartPointer<VornObjectBase> self(
        counted != nullptr && counted->refCount() > 0 ? counted : nullptr);

    struct Leaver {
        VornCollaborator& source;
        Registration& registration;
        ~Leaver() { source.leave(registration); }
    };
    for (const auto& registration : walk.list.entries) {
        if (!registration->enter()) continue;
        const Leaver leaver{*this, *registration};
        registration->dependent.handleNotification(*this, notification);
    }
}

}  // namespace VornSupport
