#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornNotification.h"
#include "runtime/support/VornObjectBase.h"

#include <cstdint>
#include <string>

namespace RuvoService {

// An event that somebody raised, on its way to the consumers. Never changed
// after construction; held through VornSmartPointer; any thread.
class VORN_EXPORT RuvoNNEventNotification final : public virtual VornSupport::VornObjectBase,
                                                  public VornSupport::VornNotification {
public:
    // Copies `dataSize` bytes from `data`.
    RuvoNNEventNotification(std::string sender, std::string eventName, std::string message,
                            std::int32_t dataSize, const char* data);
    // Takes the data over; at most 2 GiB - 1.
    RuvoNNEventNotification(std::string sender, std::string eventName, std::string message,
                            std::string data);
    ~RuvoNNEventNotification() override;

    const std::string& getSender() const { return sender_; }
    const std::string& getEventName() const { return eventName_; }  // never empty
    const std::string& getMessage() const { return message_; }
    std::int32_t getDataSize() const { return static_cast<std::int32_t>(data_.size()); }
    const char* getData() const { return data_.data(); }

    // The notification as an event, or null when it is none. Cheap enough to
    // ask once a consumer.
    static const RuvoNNEventNotification* from(const VornSupport::VornNotification& notification);

private:
    const std::string sender_;
    const std::string eventName_;
    const std::string message_;
    const std::string data_;
};

}  // namespace RuvoService
