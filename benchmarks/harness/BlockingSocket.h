#pragma once

#include "benchmarks/harness/Fd.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace RuvoBench {

// Blocking loopback sockets, for the load and for the bare servers alike: one
// system call a transfer, nothing buffered. What fails throws
// std::runtime_error. On the load's side a receive gives up after ten seconds,
// so that a server that is stuck ends the figure and not the run.

// Listens on a free port of 127.0.0.1, which it stores in `port`.
Fd listenOnLoopback(std::uint16_t& port);
// Waits for the next client at most `ms` milliseconds; negative: for ever.
Fd acceptClient(int listener, int ms);
Fd connectToLoopback(std::uint16_t port);

void setReceiveTimeout(int socket, int seconds);
// close() will reset the connection: no port is left waiting afterwards.
void setResetOnClose(int socket);

void sendAll(int socket, std::string_view bytes);
// Exactly `size` bytes. The end of the stream throws.
void receiveExactly(int socket, char* buffer, std::size_t size);
// As receiveExactly, for servers: false when the client has left.
bool receiveOrEnd(int socket, char* buffer, std::size_t size);

// Throws std::runtime_error with `what` and the system's text for errno.
[[noreturn]] void throwErrno(const char* what);

}  // namespace RuvoBench
