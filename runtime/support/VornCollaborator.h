#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornNotification.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace VornSupport {

class VornCollaborator;

// Is told of a collaborator's changes. Must have been removed from every
// collaborator before it is destroyed.
class VORN_EXPORT VornDependent {
public:
    VornDependent() = default;
    VornDependent(const VornDependent&) = default;
    VornDependent& operator=(const VornDependent&) = default;
    virtual ~VornDependent();

    // Called on the notifying thread, no lock of the collaborator held; it may
    // add and remove dependents (itself included), notify, and let go of the
    // source. Does nothing unless overridden.
    virtual void handleNotification(VornCollaborator& source, const VornNotification& notification);
};

// The subject of the observer model. Does not own its dependents. Every
// function may be called from any thread, during a notify as well.
class VORN_EXPORT VornCollaborator {
public:
    VornCollaborator();
    VornCollaborator(const VornCollaborator&);  // a copy starts without dependents
    VornCollaborator& operator=(const VornCollaborator&) { return *this; }
    virtual ~VornCollaborator();

    // Appends; a dependent added twice is told twice. One that is added during
    // a notify is told from the next one on.
    void addDependent(VornDependent& dependent);

    // Removes the earliest registration of `dependent`, if there is one. On
    // return no handler of a removed registration of it is running on another
    // thread, nor will be called again, so the dependent may be destroyed, also
    // one that had removed itself in a handler that is still running. Waits for
    // handlers elsewhere, never for one on the calling thread. Handlers that
    // remove each other at one moment on several threads, whoever's dependents
    // they are, would wait for each other: the call that would close the circle
    // returns at once instead. Needs no memory, and throws nothing; without any a
    // circle goes unseen.
    void removeDependent(VornDependent& dependent) noexcept;

    // Calls handleNotification(*this, notification) on every dependent, in the
    // order of adding, on this thread. Those removed before their turn are
    // passed over. A counted source stays alive until notify returns, even
    // when a handler drops the last other reference. An exception of a handler
    // ends the walk and passes through.
    virtual void notify(const VornNotification& notification);

    // How many registrations all collaborators have looked at, or moved, for the
    // sake of one that came or went.
    static std::uint64_t stepsForTest();

private:
    struct Registration;
    using RegistrationPtr = std::shared_ptr<Registration>;
    using Registrations = std::vector<RegistrationPtr>;
    struct List;
    struct Index;
    class RemovalWaits;

    Registrations& ownListLocked() VORN_REQUIRES(mutex_);
    void indexLastLocked() VORN_REQUIRES(mutex_);
    Registration* findLocked(const VornDependent& dependent) const VORN_REQUIRES(mutex_);
    const RegistrationPtr& placeLocked(std::uint64_t number) const VORN_REQUIRES(mutex_);
    void tidyLocked() noexcept VORN_REQUIRES(mutex_);
    void leave(Registration& registration) VORN_EXCLUDES(mutex_);
    void takeOutLocked(const VornDependent& dependent) VORN_REQUIRES(mutex_);
    RegistrationPtr runningElsewhere(const VornDependent& dependent) const
        VORN_EXCLUDES(mutex_);

    mutable VornMutex mutex_;
    // Copied before it is changed while a notify, which walks the list it found,
    // is under way; so thousands of dependents that come and go cost a copy a
    // notify, not one each. Those that are removed stay in it until they are the
    // half. Null: nobody.
    std::shared_ptr<List> registrations_ VORN_GUARDED_BY(mutex_);
    // Removed while their handlers were running: the first of a chain. Null: none.
    Registration* leaving_ VORN_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace VornSupport
