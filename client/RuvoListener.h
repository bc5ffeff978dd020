#pragma once

#include "client/RuvoClientError.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace Ruvo {

class ListenerCore;

// An event as the daemon delivers it.
struct RuvoDelivery {
    std::int32_t handle = 0;  // the one given when registering
    std::string sender;
    std::string event;
    std::string message;
    std::string data;
};

struct RuvoListenerOptions {
    bool useUdp = false;
    // For RuvoTasks::follow instead of RuvoNotifier::registerFor: each change
    // comes as the event of the same change would, but without a sender.
    bool taskChanges = false;
    // What claims to be longer is no delivery: its connection is closed. An
    // event's name may be longer than any text that the daemon takes.
    std::uint32_t maxStringBytes = 67108864;
    std::uint32_t maxDataBytes = 67108864;
    // Bytes held of incomplete deliveries, all connections together.
    std::size_t maxHeldBytes = std::size_t{160} << 20;
    std::size_t maxConnections = 32;
};

// Receives deliveries on a free loopback port, from any number of connections.
// It has no thread of its own: everything happens inside next(), so call it
// often; what the system cannot hold for a listener the daemon drops after 2 s.
// Belongs to one thread at a time, wake() to any. Failures throw
// RuvoClientError.
class RUVO_API RuvoListener {
public:
    explicit RuvoListener(const RuvoListenerOptions& options = {});
    ~RuvoListener();
    RuvoListener(RuvoListener&&) noexcept;
    RuvoListener& operator=(RuvoListener&&) noexcept;

    // "tcp:127.0.0.1:4711": what to register with.
    const std::string& remoteName() const;
    // A handle that nobody guesses. From the first call on, deliveries under
    // other handles than those made here are thrown away: any program of the
    // machine may connect, and the daemon may still know a client that had this
    // port before.
    std::int32_t newHandle();

    // The next delivery, in the order of arrival. Waits at most `timeout`
    // (negative: for ever; 0: looks once). Empty when the time is over or
    // wake() was called.
    std::optional<RuvoDelivery> next(std::chrono::milliseconds timeout);
    // True when it was wake() that ended the last next().
    bool wasWoken() const;
    // Ends the wait under way, or the next one.
    void wake();

    // Deliveries and connections that were thrown away so far.
    std::uint64_t rejected() const;
    // Those among them that were meant for this listener, going by the handle,
    // and over its limits: events that are missing, and maybe others that were
    // on their way in the same connection.
    std::uint64_t lost() const;

private:
    std::unique_ptr<ListenerCore> core_;  // never null but in a moved-from object
};

}  // namespace Ruvo
