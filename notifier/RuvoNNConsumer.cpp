#include "notifier/RuvoNNConsumer.h"

#include "notifier/RuvoNNEventNotification.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"

namespace RuvoService {

using VornSupport::VornException;
using VornSupport::VornNotification;

RuvoNNConsumer::RuvoNNConsumer(const std::string& remoteName, std::int32_t handle,
                               const std::string& signature)
    : VornProxyDependent(remoteName, handle) {
    VORN_LOG(9, "RuvoNNConsumer::constructor"
                    << " this=" << static_cast<const void*>(this) << " signature="
                    << "|" << signature << "|"
                    << " sRemoteName="
                    << "|" << remoteName << "|"
                    << " hDependent=" << handle);
    if (!expression_.setPattern(signature)) {
        VORN_LOG(3, "RuvoNNConsumer::constructor: signature of " << remoteName << " refused: "
                                                                  << expression_.getErrorText());
    }
}

RuvoNNConsumer::~RuvoNNConsumer() {
    VORN_LOG(9, "RuvoNNConsumer::destructor "
                    << " signature="
                    << "|" << getSignature() << "|"
                    << " this=" << static_cast<const void*>(this));
}

bool RuvoNNConsumer::checkEvent(const VornNotification& notification) {
    const auto* const event = RuvoNNEventNotification::from(notification);
    if (event == nullptr) return false;
    VORN_LOG(9, "RuvoNNConsumer::checkEvent"
                    << " signature="
                    << "|" << getSignature() << "|"
                    << " eventname="
                    << "|" << event->getEventName() << "|"
                    << " REFNOTIF=" << static_cast<const void*>(event));
    if (!expression_.getErrorText().empty()) throw VornException(expression_.getErrorText(), 0);
    if (event->getEventName().size() > expression_.longestQuickText()) {
        // All others would wait for the search.
        const std::string problem = "the name of an event, " +
                                    std::to_string(event->getEventName().size()) +
                                    " bytes, is too long for the signature of " + getRemoteName();
        VORN_LOG(3, "RuvoNNConsumer::checkEvent: " << problem);
        throw VornException(problem, 0);
    }
    // A signature that can match nothing selects only where it matches something.
    if (expression_.isNonEmptyFoundIn(event->getEventName())) {
        remoteNotify(notification);
        VORN_LOG(9, "RuvoNNConsumer::checkEvent"
                        << " notice has been sent to this=" << static_cast<const void*>(this)
                        << " event="
                        << "|" << event->getEventName() << "|");
    }
    return false;
}

void RuvoNNConsumer::addContent(VornNet::VornConnection& connection,
                                const VornNotification& notification) {
    VORN_LOG(9, "RuvoNNConsumer::addContent enter "
                    << " REFCLIENT " << static_cast<const void*>(&connection)
                    << " (m_sRemoteName="
                    << "|" << getRemoteName() << "|"
                    << ") REFNOTIF " << static_cast<const void*>(&notification));
    try {
        const auto* const event = RuvoNNEventNotification::from(notification);
        if (event == nullptr) throw VornException("not an event notification");
        VORN_LOG(9, "RuvoNNConsumer::addContent: EventNotification (event="
                        << "|" << event->getEventName() << "|)");
        // Sender, event name, message, the data's size and the data. Counting who
        // holds it is no change of the event.
        connection.writeShared(const_cast<RuvoNNEventNotification&>(*event), event->getContent());
    } catch (...) {
        connection.abort();
    }
    VORN_LOG(9, "RuvoNNConsumer::addContent exit  ");
}

}  // namespace RuvoService
