#include "client/ruvoctl/Session.h"

#include "client/ruvoctl/Numbers.h"

namespace Ruvoctl {

Ruvo::RuvoClient Session::connect() const {
    Ruvo::RuvoClientOptions options;
    options.host = host;
    options.port = static_cast<std::uint16_t>(port);
    options.useUdp = useUdp;
    options.timeout = timeout;
    options.connectTimeout = timeout;
    options.signOfLife = surroundings.signOfLife;
    if (port == 0) {
        const auto variable = surroundings.variable("RUVO_PORT");
        if (variable && !variable->empty()) {
            options.port = static_cast<std::uint16_t>(numberOf("RUVO_PORT", *variable, 1, 65535));
        }
    }
    return Ruvo::RuvoClient(options);
}

}  // namespace Ruvoctl
