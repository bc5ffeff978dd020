#pragma once

// For the sources of this folder only: our addresses in the system's form.

#include "runtime/platform/SocketAddress.h"

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#endif

#include <cstring>

namespace VornPlatform {

struct NativeAddress {
    sockaddr_storage storage{};
    socklen_t length = sizeof(sockaddr_storage);

    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
    int family() const { return storage.ss_family; }
};

inline NativeAddress toNative(const SocketAddress& address) {
    NativeAddress native;
    if (address.family() == SocketAddress::Family::V4) {
        sockaddr_in v4{};
        v4.sin_family = AF_INET;
        v4.sin_port = htons(address.port());
        std::memcpy(&v4.sin_addr, address.bytes().data(), 4);
        std::memcpy(&native.storage, &v4, sizeof v4);
        native.length = sizeof v4;
    } else if (address.family() == SocketAddress::Family::V6) {
        sockaddr_in6 v6{};
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(address.port());
        v6.sin6_scope_id = address.scope();
        std::memcpy(&v6.sin6_addr, address.bytes().data(), 16);
        std::memcpy(&native.storage, &v6, sizeof v6);
        native.length = sizeof v6;
    } else {
        native.length = 0;
    }
    return native;
}

inline SocketAddress fromNative(const sockaddr* native) {
    SocketAddress::Bytes bytes{};
    if (native->sa_family == AF_INET) {
        sockaddr_in v4;
        std::memcpy(&v4, native, sizeof v4);
        std::memcpy(bytes.data(), &v4.sin_addr, 4);
        return SocketAddress(SocketAddress::Family::V4, bytes, ntohs(v4.sin_port));
    }
    if (native->sa_family == AF_INET6) {
        sockaddr_in6 v6;
        std::memcpy(&v6, native, sizeof v6);
        std::memcpy(bytes.data(), &v6.sin6_addr, 16);
        return SocketAddress(SocketAddress::Family::V6, bytes, ntohs(v6.sin6_port),
                             static_cast<std::uint32_t>(v6.sin6_scope_id));
    }
    return {};
}

}  // namespace VornPlatform
