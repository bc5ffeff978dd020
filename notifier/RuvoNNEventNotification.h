#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornNotification.h"
#include "runtime/support/VornObjectBase.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace RuvoService {

// An event that somebody raised, on its way to the consumers. Never changed
// after construction; held through VornSmartPointer; any thread.
class VORN_EXPORT RuvoNNEventNotification final : public virtual VornSupport::VornObjectBase,
                                                  public VornSupport::VornNotification {
public:
    // Copies `dataSize` bytes from `data`.
    RuvoNNEventNotification(std::string sender, std::string eventName, std::string message,
                            std::int32_t dataSize, const char* data);
    // Copies `data`; at most 2 GiB - 1.
    RuvoNNEventNotification(std::string sender, std::string eventName, std::string message,
                            std::string_view data);
    ~RuvoNNEventNotification() override;

    std::string_view getSender() const { return sender_; }
    const std::string& getEventName() const { return eventName_; }  // never empty
    std::string_view getMessage() const { return message_; }
    std::int32_t getDataSize() const { return static_cast<std::int32_t>(data_.size()); }
    const char* getData() const { return data_.data(); }

    // All of them as a client is sent them: the strings, the size, the data
    // (WireCodec.h). Made once, whatever the number of clients.
    std::string_view getContent() const { return content_; }

    // The notification as an event, or null when it is none. Cheap enough to
    // ask once a consumer.
    static const RuvoNNEventNotification* from(const VornSupport::VornNotification& notification);

private:
    const std::string eventName_;
    const std::string content_;
    const std::string_view sender_;   // of content_
    const std::string_view message_;  // likewise
    const std::string_view data_;     // likewise
};

}  // namespace RuvoService
