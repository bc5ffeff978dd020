#pragma once

// For the POSIX socket sources of this folder only.

#include "runtime/platform/Socket.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>

namespace VornPlatform {

inline int fd(SocketHandle socket) { return static_cast<int>(socket); }

// Repeats a call that a signal interrupted.
template <class Call>
auto uninterrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) return result;
    }
}

template <class Count>
IoResult ioResult(Count count) {
    if (count < 0) return {0, OsError::last()};
    return {static_cast<std::size_t>(count), {}};
}

inline iovec piece(const char* data, std::size_t size) { return {const_cast<char*>(data), size}; }

inline msghdr message(iovec* pieces, std::size_t count) {
    msghdr header{};
    header.msg_iov = pieces;
    header.msg_iovlen = count;
    return header;
}

}  // namespace VornPlatform
