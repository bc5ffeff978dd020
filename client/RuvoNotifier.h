#pragma once

#include "client/RuvoClient.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Ruvo {

// The events of the monitor "Notifier", over a borrowed conversation. Where the
// daemon's answer is no, the calls throw RuvoClientError (Declined) with its
// answer as the code. The request functions make the same requests for a batch.
class RUVO_API RuvoNotifier {
public:
    explicit RuvoNotifier(RuvoClient& client) : client_(client) {}

    // From now on, events whose name the regular expression `signature` matches
    // are delivered to `remoteName`, under `handle`. A signature that is no
    // regular expression is accepted and matches nothing. -2: it is empty.
    // Registering twice means being told twice.
    void registerFor(std::string_view signature, std::string_view remoteName,
                     std::int32_t handle);
    // -3: there is no such registration.
    void unregister(std::string_view remoteName, std::int32_t handle);
    // Returns when the event is queued. -2: the name is empty. Data of 2 GiB or
    // more: Argument.
    void notify(std::string_view sender, std::string_view event, std::string_view message,
                std::string_view data = {});

    static RuvoRequest registerRequest(std::string_view signature, std::string_view remoteName,
                                       std::int32_t handle);
    static RuvoRequest unregisterRequest(std::string_view remoteName, std::int32_t handle);
    static RuvoRequest notifyRequest(std::string_view sender, std::string_view event,
                                     std::string_view message, std::string_view data = {});

private:
    void expectDone(const RuvoRequest& request, const std::string& refusal);

    RuvoClient& client_;
};

}  // namespace Ruvo
