#include "client/CApi.h"

#include <utility>

using Ruvo::guardCall;
using Ruvo::requireAll;
using Ruvo::RuvoDelivery;

namespace {

// What the caller sees, and behind it the memory it points into.
struct OwnedDelivery : ruvo_delivery {
    RuvoDelivery content;
};

ruvo_delivery* handOut(RuvoDelivery&& content) {
    auto* const owned = new OwnedDelivery{{}, std::move(content)};
    const RuvoDelivery& kept = owned->content;
    owned->handle = kept.handle;
    owned->sender = kept.sender.c_str();
    owned->sender_size = kept.sender.size();
    owned->event = kept.event.c_str();
    owned->event_size = kept.event.size();
    owned->message = kept.message.c_str();
    owned->message_size = kept.message.size();
    owned->data = kept.data.data();
    owned->data_size = kept.data.size();
    return owned;
}

ruvo_status openListener(const Ruvo::RuvoListenerOptions& options, ruvo_listener** listener) {
    return guardCall([&] {
        requireAll(listener);
        *listener = new ruvo_listener{Ruvo::RuvoListener(options)};
    });
}

}  // namespace

ruvo_status ruvo_listener_open(int use_udp, ruvo_listener** listener) {
    return openListener({.useUdp = use_udp != 0}, listener);
}

ruvo_status ruvo_listener_open_tasks(int use_udp, ruvo_listener** listener) {
    return openListener({.useUdp = use_udp != 0, .taskChanges = true}, listener);
}

void ruvo_listener_close(ruvo_listener* listener) { delete listener; }

const char* ruvo_listener_remote_name(const ruvo_listener* listener) {
    return listener == nullptr ? "" : listener->listener.remoteName().c_str();
}

ruvo_status ruvo_listener_new_handle(ruvo_listener* listener, int32_t* handle) {
    return guardCall([&] {
        requireAll(listener, handle);
        *handle = listener->listener.newHandle();
    });
}

ruvo_status ruvo_listener_next(ruvo_listener* listener, int timeout_ms,
                               ruvo_delivery** delivery) {
    return guardCall([&] {
        requireAll(listener, delivery);
        auto next = listener->listener.next(std::chrono::milliseconds(timeout_ms));
        if (next) {
            *delivery = handOut(std::move(*next));
            return RUVO_OK;
        }
        if (listener->listener.wasWoken()) {
            return Ruvo::keepError(RUVO_WOKEN, "the wait was ended");
        }
        return Ruvo::keepError(RUVO_TIMED_OUT, "no delivery came in time");
    });
}

ruvo_status ruvo_listener_wake(ruvo_listener* listener) {
    return guardCall([&] {
        requireAll(listener);
        listener->listener.wake();
    });
}

uint64_t ruvo_listener_lost(const ruvo_listener* listener) {
    return listener == nullptr ? 0 : listener->listener.lost();
}

void ruvo_delivery_free(ruvo_delivery* delivery) { delete static_cast<OwnedDelivery*>(delivery); }
