#pragma once

#include "runtime/net/VornDeliveryChannel.h"
#include "runtime/platform/Export.h"

#include <memory>
#include <string>
#include <vector>

namespace VornNet {

// Gathers the deliveries of the thread that makes it, for as long as it lives:
// bytes for one client are held until 16 KiB are, or until settle() or flush().
// Nothing waits for a client but settle() and flush(), so a lock may be held
// around the deliveries themselves. One at a time a thread; the destructor
// flushes.
class VORN_EXPORT VornDeliveryGathering {
public:
    VornDeliveryGathering();
    ~VornDeliveryGathering();
    VornDeliveryGathering(const VornDeliveryGathering&) = delete;
    VornDeliveryGathering& operator=(const VornDeliveryGathering&) = delete;

    // Waits until every client that holds more than 16 KiB back has taken its
    // bytes or has had them for "ruvod.limits.delivery-ms"; all of them at
    // once, so any number of clients that do not read costs that time once.
    // Call it after each event, no lock held.
    void settle();
    // Sends everything held, waiting as settle() does. Call it when nothing
    // more is to be delivered for now.
    void flush();
    // Sends everything held without waiting for anybody: what clients do not
    // take at once, a thread of the library goes on sending.
    void handOver();

    // The calling thread's gathering, or null.
    static VornDeliveryGathering* current();

private:
    friend class VornDeliveryChannel;
    using Channels = std::vector<std::shared_ptr<VornDeliveryChannel>>;

    // Events between two looks for clients that have no registration any more.
    static constexpr int kSweep = 64;

    void dropLeft();
    void forgetStalled();
    void forgetHeld();

    Channels held_;        // have unsent bytes, or had
    Channels stalled_;     // of those, the ones over the limit
    int settled_ = 0;
    std::string scratch_;  // where a delivery is written, kept for its memory
};

}  // namespace VornNet
