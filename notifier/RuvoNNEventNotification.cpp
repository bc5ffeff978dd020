#include "notifier/RuvoNNEventNotification.h"

#include "runtime/support/VornLogging.h"

#include <cstddef>
#include <typeinfo>
#include <utility>

namespace RuvoService {

RuvoNNEventNotification::RuvoNNEventNotification(std::string sender, std::string eventName,
                                                 std::string message, std::int32_t dataSize,
                                                 const char* data)
    : RuvoNNEventNotification(std::move(sender), std::move(eventName), std::move(message),
                              dataSize > 0 ? std::string(data, static_cast<std::size_t>(dataSize))
                                           : std::string()) {}

RuvoNNEventNotification::RuvoNNEventNotification(std::string sender, std::string eventName,
                                                 std::string message, std::string data)
    : sender_(std::move(sender)),
      eventName_(std::move(eventName)),
      message_(std::move(message)),
      data_(std::move(data)) {
    VORN_LOG(9, "RuvoNNEventNotification::constructor"
                    << " this=" << static_cast<const void*>(this) << " eventname="
                    << "|" << eventName_ << "|");
}

RuvoNNEventNotification::~RuvoNNEventNotification() {
    VORN_LOG(9, "RuvoNNEventNotification::destructor "
                    << " this=" << static_cast<const void*>(this));
}

const RuvoNNEventNotification* RuvoNNEventNotification::from(
    const VornSupport::VornNotification& notification) {
    // The class is final, so a look at the type says it all.
    if (typeid(notification) != typeid(RuvoNNEventNotification)) return nullptr;
    return static_cast<const RuvoNNEventNotification*>(&notification);
}

}  // namespace RuvoService
