#include "runtime/net/VornProxyDependent.h"

#include "runtime/net/VornDeliveryChannel.h"
#include "runtime/net/VornDeliveryPump.h"

#include <vector>

namespace VornNet {

VornProxyDependent::VornProxyDependent(const std::string& remoteName, std::int32_t handle)
    : remoteName_(remoteName),
      handle_(handle),
      channel_(VornDeliveryChannel::forName(remoteName)) {}

VornProxyDependent::~VornProxyDependent() = default;

void VornProxyDependent::remoteNotify(const VornSupport::VornNotification& notification) {
    channel_->deliver(*this, notification);
}

bool VornProxyDependent::checkEvent(const VornSupport::VornNotification&) { return false; }

void VornProxyDependent::retire() {
    std::vector<VornDeliveryChannel::Pointer> channels{channel_};
    VornDeliveryChannel::waitFor(channels, 0);
}

void VornProxyDependent::retireLater() { VornDeliveryPump::getInstance().take({channel_}); }

}  // namespace VornNet
