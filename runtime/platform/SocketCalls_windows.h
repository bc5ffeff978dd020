#pragma once

// For the Windows socket sources of this folder only.

#include "runtime/platform/Socket.h"

#include <winsock2.h>

#include <climits>

namespace VornPlatform {

inline SOCKET native(SocketHandle socket) { return static_cast<SOCKET>(socket); }

// Starts Windows sockets on first use; they stay until the process ends.
OsError startSockets();

// Whether a connect under way has failed. Leaves pendingError() to be asked.
VORN_EXPORT bool hasConnectFailed(SocketHandle socket);

inline ULONG bounded(std::size_t size) {
    return static_cast<ULONG>(size < INT_MAX ? size : INT_MAX);
}

inline WSABUF piece(const char* data, std::size_t size) {
    return {bounded(size), const_cast<char*>(data)};
}

}  // namespace VornPlatform
