#pragma once

#include "runtime/platform/Export.h"

namespace VornSupport {

// Something that a thread puts off until it has answered its client, and that
// others wait for: it is done before the thread blocks on the way there. One a
// thread at a time; the functions concern the calling thread's.
class VORN_EXPORT VornPostponed {
public:
    VornPostponed() = default;
    VornPostponed(const VornPostponed&) = delete;
    VornPostponed& operator=(const VornPostponed&) = delete;

    static bool isPending();
    // For whoever is about to wait for something that may take long. Does nothing
    // when nothing is pending.
    static void perform() noexcept;

protected:
    ~VornPostponed();  // takes it back

    // Makes this the calling thread's.
    void postpone();
    void takeBack();
    // No longer pending when it is called.
    virtual void run() noexcept = 0;
};

}  // namespace VornSupport
