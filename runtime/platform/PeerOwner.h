#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"
#include "runtime/platform/SocketAddress.h"

#include <cstdint>
#include <memory>
#include <string>

namespace VornPlatform {

enum class Transport { Tcp, Udp };

// A user of this machine, as the rights to our services see him. Immutable; any
// thread. The questions ask the system's user data base, which may take time.
class VORN_EXPORT PeerOwner {
public:
    virtual ~PeerOwner();

    // The user this process runs as.
    virtual bool isCurrentUser() const = 0;
    // POSIX: uid 0. Windows: Administrators is among the enabled groups.
    virtual bool isAdministrator() const = 0;
    // Primary and supplementary membership both count. False for an unknown or
    // empty group name.
    virtual bool isMemberOf(const std::string& group) const = 0;
    virtual std::string describe() const = 0;  // "uid 1000", "process 44 of HOST\user"
};

struct PeerOwnerResult {
    std::unique_ptr<PeerOwner> owner;  // null: it cannot be determined
    OsError error;                     // the reason; NotFound: no such socket is open
};

// Who owns the socket at the other end of a conversation of this machine: the
// one whose own address is `peer` and whose peer is `local`. A socket that its
// process has already closed has no owner. Blocks only shortly; any thread.
VORN_EXPORT PeerOwnerResult findPeerOwner(Transport transport, const SocketAddress& peer,
                                          const SocketAddress& local);

// The user with this number (POSIX; Windows has none and answers null).
VORN_EXPORT std::unique_ptr<PeerOwner> makeOwnerOfUser(std::uint32_t uid);

}  // namespace VornPlatform
