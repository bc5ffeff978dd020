#pragma once

#include "runtime/net/VornProxyDependent.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornRegularExpression.h"

#include <cstdint>
#include <string>

namespace RuvoService {

// A client that is told of the events whose name its signature selects. Lives
// in VornProxyDependentContainer; never changed after construction; any thread.
class VORN_EXPORT RuvoNNConsumer : public VornNet::VornProxyDependent {
public:
    // `signature` is a pattern of VornRegularExpression, made ready here and
    // not at each event. One that is refused is kept with the reason.
    RuvoNNConsumer(const std::string& remoteName, std::int32_t handle,
                   const std::string& signature);
    ~RuvoNNConsumer() override;

    const std::string& getSignature() const { return expression_.getPattern(); }

    // Delivers the event when the signature's first match in its name is not
    // empty. Returns false always. Throws VornException with the reason when
    // the signature was refused or the name is too long to be searched for it
    // quickly (VornRegularExpression::longestQuickText), and what remoteNotify
    // throws.
    bool checkEvent(const VornSupport::VornNotification& notification) override;

protected:
    // Writes sender, event name, message (strings), the data's size (int) and
    // the data. Throws nothing: the connection of a failure is broken, so that
    // what was half written goes nowhere.
    void addContent(VornNet::VornConnection& connection,
                    const VornSupport::VornNotification& notification) override;

private:
    VornSupport::VornRegularExpression<std::string> expression_;
};

}  // namespace RuvoService
