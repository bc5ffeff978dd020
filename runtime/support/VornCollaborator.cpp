#include "runtime/support/VornCollaborator.h"

#include "runtime/support/VornSmartPointer.h"

#include <algorithm>
#include <iterator>
#include <thread>

namespace VornSupport {

VornNotification::~VornNotification() = default;
VornDependent::~VornDependent() = default;

void VornDependent::handleNotification(VornCollaborator&, const VornNotification&) {}

// Its fields are guarded by the mutex of the collaborator it belongs to.
struct VornCollaborator::Registration {
    explicit Registration(VornDependent& d) : dependent(d) {}

    bool runsElsewhere() const {
        const auto here = std::this_thread::get_id();
        return std::any_of(runningOn.begin(), runningOn.end(),
                           [here](std::thread::id id) { return id != here; });
    }

    VornDependent& dependent;
    bool removed = false;
    std::vector<std::thread::id> runningOn;  // one entry a handler call under way
    VornCondition handlerLeft;
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

void VornCollaborator::addDependent(VornDependent& dependent) {
    auto registration = std::make_shared<Registration>(dependent);
    VornMutexLock lock(mutex_);
    auto list = registrations_ ? std::make_shared<Registrations>(*registrations_)
                               : std::make_shared<Registrations>();
    list->push_back(std::move(registration));
    registrations_ = std::move(list);
}

void VornCollaborator::removeDependent(VornDependent& dependent) {
    VornMutexLock lock(mutex_);
    takeOutLocked(dependent);
    while (const RegistrationPtr running = runningElsewhereLocked(dependent)) {
        const auto here = std::this_thread::get_id();
        RemovalWaits::Wait wait{here, running.get(), running->runningOn};
        std::erase(wait.on, here);
        if (!RemovalWaits::getInstance().begin(wait)) return;
        while (running->runsElsewhere()) running->handlerLeft.wait(mutex_);
        RemovalWaits::getInstance().end(wait);
    }
}

void VornCollaborator::takeOutLocked(const VornDependent& dependent) {
    if (!registrations_) return;
    const auto found =
        std::find_if(registrations_->begin(), registrations_->end(),
                     [&](const auto& entry) { return &entry->dependent == &dependent; });
    if (found == registrations_->end()) return;
    const RegistrationPtr registration = *found;

    std::shared_ptr<Registrations> list;
    if (registrations_->size() > 1) {
        list = std::make_shared<Registrations>();
        list->reserve(registrations_->size() - 1);
        std::copy(registrations_->begin(), found, std::back_inserter(*list));
        std::copy(found + 1, registrations_->end(), std::back_inserter(*list));
    }
    if (!registration->runningOn.empty()) leaving_.push_back(registration);
    registration->removed = true;
    registrations_ = std::move(list);
}

// A removed registration of the dependent whose handler runs on another thread.
VornCollaborator::RegistrationPtr VornCollaborator::runningElsewhereLocked(
    const VornDependent& dependent) const {
    const auto found = std::find_if(leaving_.begin(), leaving_.end(), [&](const auto& entry) {
        return &entry->dependent == &dependent && entry->runsElsewhere();
    });
    return found == leaving_.end() ? nullptr : *found;
}

bool VornCollaborator::enter(Registration& registration) {
    VornMutexLock lock(mutex_);
    if (registration.removed) return false;
    registration.runningOn.push_back(std::this_thread::get_id());
    return true;
}

void VornCollaborator::leave(Registration& registration) {
    const auto here = std::this_thread::get_id();
    VornMutexLock lock(mutex_);
    auto& running = registration.runningOn;
    running.erase(std::find(running.begin(), running.end(), here));
    if (!registration.removed) return;
    if (running.empty()) {
        std::erase_if(leaving_, [&](const auto& entry) { return entry.get() == &registration; });
    }
    RemovalWaits::getInstance().handlerLeft(registration, here);
    registration.handlerLeft.notifyAll();
}

void VornCollaborator::notify(const VornNotification& notification) {
    std::shared_ptr<const Registrations> list;
    {
        VornMutexLock lock(mutex_);
        list = registrations_;
    }
    if (!list) return;

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
    for (const auto& registration : *list) {
        if (!enter(*registration)) continue;
        const Leaver leaver{*this, *registration};
        registration->dependent.handleNotification(*this, notification);
    }
}

}  // namespace VornSupport
