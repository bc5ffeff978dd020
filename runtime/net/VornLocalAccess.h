#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/PeerOwner.h"
#include "runtime/support/VornMutex.h"

#include <functional>
#include <string>

namespace VornNet {

// Decides who may use the engines over TCP and UDP: a client of this machine
// whose owner is the daemon's user, an administrator, or a member of the
// configured group. An owner that cannot be determined is refused. Any thread.
class VORN_EXPORT VornLocalAccess {
public:
    using OwnerLookup = std::function<VornPlatform::PeerOwnerResult(
        VornPlatform::Transport, const VornPlatform::SocketAddress& peer,
        const VornPlatform::SocketAddress& local)>;

    static VornLocalAccess& getInstance();
    VornLocalAccess();
    VornLocalAccess(const VornLocalAccess&) = delete;
    VornLocalAccess& operator=(const VornLocalAccess&) = delete;

    // `policy` is "owner" or "any" (every client of this machine). Any other
    // text counts as "owner" and is logged. An empty group admits nobody.
    void configure(const std::string& policy, const std::string& group);

    // Asks the system. Refusals are logged at level 3 with their reason.
    bool admits(VornPlatform::Transport transport, const VornPlatform::SocketAddress& peer,
                const VornPlatform::SocketAddress& local) const;
    // Whether the owner is asked at all; else being local is enough.
    bool asksOwner() const;

    void setOwnerLookupForTest(OwnerLookup lookup);

private:
    mutable VornSupport::VornMutex mutex_;
    bool any_ VORN_GUARDED_BY(mutex_) = false;
    std::string group_ VORN_GUARDED_BY(mutex_);
    OwnerLookup lookup_ VORN_GUARDED_BY(mutex_);
};

}  // namespace VornNet
