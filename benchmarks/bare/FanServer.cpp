#include "benchmarks/bare/BareServers.h"
#include "benchmarks/harness/BlockingSocket.h"

#include <algorithm>
#include <string>

namespace RuvoBench {
namespace {

constexpr std::size_t kGather = 16 * 1024;

void writeAll(const std::vector<Fd>& listeners, std::string_view piece, std::size_t delivery,
              std::uint64_t deliveries) {
    const std::uint64_t inPiece = piece.size() / delivery;
    while (deliveries > 0) {
        const auto now = std::min(deliveries, inPiece);
        const auto bytes = piece.substr(0, static_cast<std::size_t>(now) * delivery);
        for (const auto& listener : listeners) sendAll(listener.get(), bytes);
        deliveries -= now;
    }
}

}  // namespace

void serveFan(std::size_t delivery, const std::vector<std::uint16_t>& ports) {
    std::uint16_t own = 0;
    const Fd listening = listenOnLoopback(own);
    std::vector<Fd> listeners;
    for (const auto port : ports) listeners.push_back(connectToLoopback(port));
    const std::string piece(std::max<std::size_t>(kGather / delivery, 1) * delivery, 'd');

    announcePort(own);
    for (;;) {
        const Fd client = acceptClient(listening.get(), -1);
        std::uint64_t deliveries = 0;
        while (receiveOrEnd(client.get(), reinterpret_cast<char*>(&deliveries),
                            sizeof deliveries)) {
            writeAll(listeners, piece, delivery, deliveries);
        }
    }
}

}  // namespace RuvoBench
