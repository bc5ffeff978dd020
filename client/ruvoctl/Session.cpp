#include "client/ruvoctl/Session.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace Ruvoctl {
namespace {

std::uint16_t portOf(const std::string& text) {
    std::uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc{} || stop != end || port == 0) {
        throw UsageError("RUVO_PORT is no port number: \"" + text + "\"");
    }
    return port;
}

}  // namespace

std::chrono::milliseconds durationOf(double seconds) {
    constexpr double kLongest = 1000000;  // some days; the wait of the system counts in ms
    if (!std::isfinite(seconds) || seconds <= 0 || seconds > kLongest) {
        throw UsageError("a time-out is a number of seconds between 0 and 1000000");
    }
    return std::chrono::milliseconds(std::max(1LL, std::llround(seconds * 1000)));
}

Ruvo::RuvoClient Session::connect() const {
    Ruvo::RuvoClientOptions options;
    options.host = host;
    options.port = port;
    options.useUdp = useUdp;
    options.timeout = durationOf(timeoutSeconds);
    options.connectTimeout = options.timeout;
    if (port == 0) {
        const auto variable = surroundings.variable("RUVO_PORT");
        if (variable && !variable->empty()) options.port = portOf(*variable);
    }
    return Ruvo::RuvoClient(options);
}

}  // namespace Ruvoctl
