#pragma once

#include "runtime/platform/Export.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace VornNet {

// Where a client listens for deliveries: "tcp:HOST:PORT" or "udp:HOST:PORT",
// HOST a name or a numeric address (an IPv6 one with or without brackets).
struct VORN_EXPORT VornRemoteName {
    enum class Kind { Tcp, Udp };

    Kind kind;
    std::string host;
    std::uint16_t port;

    // Empty when the text is no remote name.
    static std::optional<VornRemoteName> parse(std::string_view text);
};

}  // namespace VornNet
