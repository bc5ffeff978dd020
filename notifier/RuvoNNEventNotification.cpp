#include "notifier/RuvoNNEventNotification.h"

#include "runtime/net/WireCodec.h"
#include "runtime/support/VornLogging.h"

#include <cstddef>
#include <typeinfo>
#include <utility>

namespace RuvoService {
namespace {

constexpr std::size_t kCount = 4;  // bytes before a string or the data

std::string encode(std::string_view sender, std::string_view eventName, std::string_view message,
                   std::string_view data) {
    std::string content;
    content.reserve(4 * kCount + sender.size() + eventName.size() + message.size() + data.size());
    VornNet::appendString(content, sender);
    VornNet::appendString(content, eventName);
    VornNet::appendString(content, message);
    VornNet::appendInt(content, static_cast<std::int32_t>(data.size()));
    content.append(data);
    return content;
}

}  // namespace

RuvoNNEventNotification::RuvoNNEventNotification(std::string sender, std::string eventName,
                                                 std::string message, std::int32_t dataSize,
                                                 const char* data)
    : RuvoNNEventNotification(std::move(sender), std::move(eventName), std::move(message),
                              dataSize > 0
                                  ? std::string_view(data, static_cast<std::size_t>(dataSize))
                                  : std::string_view()) {}

RuvoNNEventNotification::RuvoNNEventNotification(std::string sender, std::string eventName,
                                                 std::string message, std::string_view data)
    : eventName_(std::move(eventName)),
      content_(encode(sender, eventName_, message, data)),
      sender_(content_.data() + kCount, sender.size()),
      message_(sender_.data() + sender.size() + kCount + eventName_.size() + kCount,
               message.size()),
      data_(message_.data() + message.size() + kCount, data.size()) {
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
