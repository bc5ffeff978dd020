#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace RuvoBench {

// What the daemon is measured against: servers that do the same work on the
// wire with nothing around it. Each prints its port as a line when it is ready
// and never returns.

// Accepts clients; a thread a client reads `request` bytes and answers `answer`
// bytes, over and over. With `greeting`, first reads the opening line and
// answers it, as a client sees it that waits to be admitted.
[[noreturn]] void servePing(std::size_t request, std::size_t answer, bool greeting);

// Accepts clients; a thread a client answers requests with one integer argument by
// an integer, without the opening line. Through the daemon's own connection class.
[[noreturn]] void serveConversations();

// As servePing, and the client's thread passes each request on to a second
// thread, which writes `delivery` bytes to the listener on `port`.
[[noreturn]] void serveHop(std::size_t request, std::size_t answer, std::size_t delivery,
                           std::uint16_t port);

// One client; it sends a number of deliveries (64-bit, machine order), and one
// thread writes that many, of `delivery` bytes each, to every listener, in
// pieces of as many whole deliveries as 16 KiB hold.
[[noreturn]] void serveFan(std::size_t delivery, const std::vector<std::uint16_t>& ports);

// For each of them: prints the port line.
void announcePort(std::uint16_t port);

}  // namespace RuvoBench
