#pragma once

#include "runtime/net/VornConnection.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornCollaborator.h"
#include "runtime/support/VornObjectBase.h"

#include <cstdint>
#include <memory>
#include <string>

namespace VornNet {

class VornDeliveryChannel;

// Stands for a client in another process that wants to be told. Counted; held
// by VornProxyDependentContainer once registered. Never changed after
// construction; any thread.
class VORN_EXPORT VornProxyDependent : public VornSupport::VornDependent,
                                       public virtual VornSupport::VornObjectBase {
public:
    // `remoteName` says where the client listens: "tcp:HOST:PORT" or
    // "udp:HOST:PORT". `handle` is the client's own number for this
    // registration and opens each delivery. A name that cannot be read is
    // accepted here and makes every delivery fail.
    VornProxyDependent(const std::string& remoteName, std::int32_t handle);
    ~VornProxyDependent() override;
    VornProxyDependent(const VornProxyDependent&) = delete;
    VornProxyDependent& operator=(const VornProxyDependent&) = delete;

    const std::string& getRemoteName() const { return remoteName_; }
    std::int32_t getHandle() const { return handle_; }

    // Delivers a notification: the handle, then what addContent writes. Opens
    // the connection to the remote name or uses the one that all registrations
    // of that name share. Inside a VornDeliveryGathering of the calling thread
    // the bytes may go out later, and nothing here waits for the client; else
    // they are sent on return, which takes at most "ruvod.limits.delivery-ms".
    // Throws VornException when the client cannot be reached, does not take
    // its bytes in time, or is not to be tried again yet.
    void remoteNotify(const VornSupport::VornNotification& notification);

    // Is offered a notification and may deliver it. The result says nothing;
    // the base does nothing and returns false.
    virtual bool checkEvent(const VornSupport::VornNotification& notification);

protected:
    // Writes the notification's fields for the client. What it writes is
    // delivered whole or not at all; an exception delivers nothing.
    virtual void addContent(VornConnection& connection,
                            const VornSupport::VornNotification& notification) = 0;

private:
    friend class VornDeliveryChannel;
    friend class VornProxyDependentContainer;

    // It is no longer registered: sends what is held for its client, and waits
    // for that, or has it sent.
    void retire();
    void retireLater();

    const std::string remoteName_;
    const std::int32_t handle_;
    const std::shared_ptr<VornDeliveryChannel> channel_;  // of all proxies of the name
};

}  // namespace VornNet
