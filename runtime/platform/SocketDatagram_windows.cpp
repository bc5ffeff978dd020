#include "runtime/platform/Socket.h"

#include "runtime/platform/SocketCalls_windows.h"
#include "runtime/platform/SocketNative.h"

#include <mswsock.h>

namespace VornPlatform {
namespace {

using Family = SocketAddress::Family;

// An extension of the socket provider, hence asked for.
LPFN_WSARECVMSG findReceiveMessage(SOCKET socket) {
    GUID id = WSAID_WSARECVMSG;
    LPFN_WSARECVMSG found = nullptr;
    DWORD returned = 0;
    ::WSAIoctl(socket, SIO_GET_EXTENSION_FUNCTION_POINTER, &id, sizeof id, &found, sizeof found,
               &returned, nullptr, nullptr);
    return found;
}

template <class Info>
bool readInfo(WSACMSGHDR* control, int level, int type, Info& info) {
    if (control->cmsg_level != level || control->cmsg_type != type) return false;
    std::memcpy(&info, WSA_CMSG_DATA(control), sizeof info);
    return true;
}

SocketAddress destinationOf(WSAMSG& message) {
    SocketAddress::Bytes bytes{};
    for (WSACMSGHDR* c = WSA_CMSG_FIRSTHDR(&message); c != nullptr;
         c = WSA_CMSG_NXTHDR(&message, c)) {
        IN_PKTINFO v4{};
        IN6_PKTINFO v6{};
        if (readInfo(c, IPPROTO_IP, IP_PKTINFO, v4)) {
            std::memcpy(bytes.data(), &v4.ipi_addr, 4);
            return SocketAddress(Family::V4, bytes, 0);
        }
        if (readInfo(c, IPPROTO_IPV6, IPV6_PKTINFO, v6)) {
            std::memcpy(bytes.data(), &v6.ipi6_addr, 16);
            const bool linkLocal = bytes[0] == 0xfe && (bytes[1] & 0xc0) == 0x80;
            return SocketAddress(Family::V6, bytes, 0, linkLocal ? v6.ipi6_ifindex : 0);
        }
    }
    return {};
}

template <class Info>
void writeInfo(WSAMSG& message, int level, int type, const Info& info) {
    WSACMSGHDR* const control = reinterpret_cast<WSACMSGHDR*>(message.Control.buf);
    control->cmsg_level = level;
    control->cmsg_type = type;
    control->cmsg_len = WSA_CMSG_LEN(sizeof info);
    std::memcpy(WSA_CMSG_DATA(control), &info, sizeof info);
    message.Control.len = static_cast<ULONG>(WSA_CMSG_SPACE(sizeof info));
}

// An IPv4 source is given in the IPv4 form to sockets of both families.
void setSource(WSAMSG& message, const SocketAddress& from) {
    const SocketAddress plain = from.unmapped();
    if (plain.family() == Family::V4) {
        IN_PKTINFO info{};
        std::memcpy(&info.ipi_addr, plain.bytes().data(), 4);
        writeInfo(message, IPPROTO_IP, IP_PKTINFO, info);
    } else {
        IN6_PKTINFO info{};
        std::memcpy(&info.ipi6_addr, plain.bytes().data(), 16);
        info.ipi6_ifindex = plain.scope();
        writeInfo(message, IPPROTO_IPV6, IPV6_PKTINFO, info);
    }
}

struct alignas(16) ControlSpace {
    char bytes[128];  // more than both kinds of information take
};

}  // namespace

IoResult receiveFrom(SocketHandle socket, char* buffer, std::size_t size, SocketAddress& from,
                     SocketAddress& to) {
    static const LPFN_WSARECVMSG receiveMessage = findReceiveMessage(native(socket));
    if (receiveMessage == nullptr) return {0, OsError(WSAEOPNOTSUPP)};
    NativeAddress peer;
    ControlSpace control;
    WSABUF data = piece(buffer, size);
    WSAMSG message{};
    message.name = peer.get();
    message.namelen = peer.length;
    message.lpBuffers = &data;
    message.dwBufferCount = 1;
    message.Control = {sizeof control.bytes, control.bytes};
    DWORD count = 0;
    if (receiveMessage(native(socket), &message, &count, nullptr, nullptr) != 0) {
        return {0, OsError::lastSocket()};
    }
    from = fromNative(peer.get());
    to = destinationOf(message);
    return {count, {}};
}

IoResult sendTo(SocketHandle socket, std::string_view datagram, const SocketAddress& to,
                const SocketAddress& from) {
    NativeAddress peer = toNative(to);
    ControlSpace control{};
    WSABUF data = piece(datagram.data(), datagram.size());
    WSAMSG message{};
    message.name = peer.get();
    message.namelen = peer.length;
    message.lpBuffers = &data;
    message.dwBufferCount = 1;
    if (from) {
        message.Control = {sizeof control.bytes, control.bytes};
        setSource(message, from);
    }
    DWORD count = 0;
    if (::WSASendMsg(native(socket), &message, 0, &count, nullptr, nullptr) != 0) {
        return {0, OsError::lastSocket()};
    }
    return {count, {}};
}

}  // namespace VornPlatform
