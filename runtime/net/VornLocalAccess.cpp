#include "runtime/net/VornLocalAccess.h"

#include "runtime/support/VornLogging.h"

#include <utility>

namespace VornNet {
namespace {

using VornPlatform::SocketAddress;
using VornSupport::VornMutexLock;

bool refuse(const SocketAddress& peer, const std::string& reason) {
    VORN_LOG(3, "VornLocalAccess::admits: " << peer.text() << " refused: " << reason);
    return false;
}

}  // namespace

VornLocalAccess::VornLocalAccess() : lookup_(&VornPlatform::findPeerOwner) {}

VornLocalAccess& VornLocalAccess::getInstance() {
    static VornLocalAccess* const instance = new VornLocalAccess;  // outlives every thread
    return *instance;
}

void VornLocalAccess::configure(const std::string& policy, const std::string& group) {
    if (policy != "owner" && policy != "any") {
        VORN_LOG(3, "VornLocalAccess::configure: unknown policy \"" << policy
                                                                    << "\" counts as \"owner\"");
    }
    VornMutexLock lock(mutex_);
    any_ = policy == "any";
    group_ = group;
}

bool VornLocalAccess::asksOwner() const {
    VornMutexLock lock(mutex_);
    return !any_;
}

void VornLocalAccess::setOwnerLookupForTest(OwnerLookup lookup) {
    VornMutexLock lock(mutex_);
    lookup_ = std::move(lookup);
}

bool VornLocalAccess::admits(VornPlatform::Transport transport, const SocketAddress& peer,
                             const SocketAddress& local) const {
    bool any = false;
    std::string group;
    OwnerLookup lookup;
    {
        VornMutexLock lock(mutex_);
        any = any_;
        group = group_;
        lookup = lookup_;
    }
    if (!VornPlatform::isOwnAddress(peer)) return refuse(peer, "not of this machine");
    if (any) return true;
    const auto found = lookup(transport, peer, local);
    if (found.owner == nullptr) {
        return refuse(peer, "its owner cannot be determined (" + found.error.text() + ")");
    }
    if (found.owner->isCurrentUser() || found.owner->isAdministrator()) return true;
    if (!group.empty() && found.owner->isMemberOf(group)) return true;
    return refuse(peer, "its owner, " + found.owner->describe() + ", is not admitted");
}

}  // namespace VornNet
