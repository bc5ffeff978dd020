#include "runtime/support/VornCollaborator.h"

#include "runtime/support/VornSmartPointer.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <optional>
#include <thread>
#include <utility>

namespace VornSupport {

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
    bool isRemoved() VORN_EXCLUDES(mutex) {
        VornMutexLock lock(mutex);
        return removed;
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

    VornDependent& dependent;
    VornMutex mutex;
    bool removed VORN_GUARDED_BY(mutex) = false;
    // One entry a handler call under way.
    std::vector<std::thread::id> runningOn VORN_GUARDED_BY(mutex);
    VornCondition handlerLeft;
    // While it is in the chain of those that leave, which keeps it alive. Guarded by
    // the collaborator's mutex.
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

struct VornCollaborator::List {
    Registrations entries;
    bool hasStale = false;      // removed entries, for want of memory; under the mutex
    std::atomic<int> walks{0};  // of notify, under way; begun under the mutex
};

// The entries, in a list that no notify walks.
VornCollaborator::Registrations& VornCollaborator::ownListLocked() {
    // What the last walk read, it read before it took itself off the count.
    if (!registrations_ || registrations_->walks.load(std::memory_order_acquire) != 0) {
        auto list = std::make_shared<List>();
        if (registrations_) {
            list->entries = registrations_->entries;
            list->hasStale = registrations_->hasStale;
        }
        registrations_ = std::move(list);
    }
    return registrations_->entries;
}

void VornCollaborator::addDependent(VornDependent& dependent) {
    auto registration = std::make_shared<Registration>(dependent);
    VornMutexLock lock(mutex_);
    ownListLocked().push_back(std::move(registration));
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
    if (!registrations_) return;
    const auto& entries = registrations_->entries;
    const auto found = std::find_if(entries.begin(), entries.end(), [&](const auto& entry) {
        return &entry->dependent == &dependent && !entry->isRemoved();
    });
    if (found == entries.end()) return;
    const RegistrationPtr registration = *found;
    {
        VornMutexLock lock(registration->mutex);
        registration->removed = true;
        if (!registration->runningOn.empty()) {
            registration->self = registration;
            registration->nextLeaving = std::exchange(leaving_, registration.get());
        }
    }
    try {
        dropEntryLocked(*registration);
    } catch (const std::bad_alloc&) {
        registrations_->hasStale = true;  // passed over from now on, dropped with the next
    }
}

void VornCollaborator::dropEntryLocked(const Registration& registration) {
    Registrations& list = ownListLocked();
    if (registrations_->hasStale) {
        std::erase_if(list, [](const auto& entry) { return entry->isRemoved(); });
        registrations_->hasStale = false;
    } else {
        list.erase(std::find_if(list.begin(), list.end(), [&](const auto& entry) {
            return entry.get() == &registration;
        }));
    }
    if (list.empty()) registrations_ = nullptr;
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
