#include "client/RuvoNotifier.h"

#include <limits>

namespace Ruvo {
namespace {

constexpr std::string_view kMonitor = "Notifier";

// The daemon cannot be configured to take less.
constexpr std::size_t kLargestSureBlock = 64;
constexpr const char* kLimitHint =
    " bytes, and the daemon refuses blocks over \"ruvod.limits.block-bytes\" (64 MiB unless "
    "configured otherwise)";

}  // namespace

RuvoRequest RuvoNotifier::registerRequest(std::string_view signature,
                                          std::string_view remoteName, std::int32_t handle) {
    return RuvoRequest(kMonitor, "RUVO_NN_REGISTER")
        .addString(signature)
        .addString(remoteName)
        .addInt(handle);
}

RuvoRequest RuvoNotifier::unregisterRequest(std::string_view remoteName, std::int32_t handle) {
    return RuvoRequest(kMonitor, "RUVO_NN_UNREGISTER").addString(remoteName).addInt(handle);
}

RuvoRequest RuvoNotifier::notifyRequest(std::string_view sender, std::string_view event,
                                        std::string_view message, std::string_view data) {
    if (data.size() > std::numeric_limits<std::int32_t>::max()) {
        throw RuvoClientError(RuvoProblem::Argument, "an event's data has fewer than 2 GiB");
    }
    return RuvoRequest(kMonitor, "RUVO_NN_NOTIFY")
        .addString(sender)
        .addString(event)
        .addString(message)
        .addInt(static_cast<std::int32_t>(data.size()))
        .addBytes(data);
}

void RuvoNotifier::expectDone(const RuvoRequest& request, const std::string& refusal) {
    const std::int32_t answer = client_.call(request);
    if (answer != 0) throw RuvoClientError(RuvoProblem::Declined, refusal, answer);
}

void RuvoNotifier::registerFor(std::string_view signature, std::string_view remoteName,
                               std::int32_t handle) {
    expectDone(registerRequest(signature, remoteName, handle), "a pattern must not be empty");
}

void RuvoNotifier::unregister(std::string_view remoteName, std::int32_t handle) {
    expectDone(unregisterRequest(remoteName, handle),
               "there is no registration of " + std::string(remoteName) + " under handle " +
                   std::to_string(handle));
}

void RuvoNotifier::notify(std::string_view sender, std::string_view event,
                          std::string_view message, std::string_view data) {
    try {
        expectDone(notifyRequest(sender, event, message, data),
                   "an event's name must not be empty");
    } catch (const RuvoClientError& error) {
        // The daemon has no answer for it: it closes the connection.
        if (error.problem() != RuvoProblem::Closed || data.size() <= kLargestSureBlock) throw;
        throw RuvoClientError(RuvoProblem::Closed,
                              std::string(error.what()) + "; the data has " +
                                  std::to_string(data.size()) + kLimitHint,
                              error.code());
    }
}

}  // namespace Ruvo
