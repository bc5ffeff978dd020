#include "runtime/platform/Socket.h"

#include "runtime/platform/SocketCalls_posix.h"
#include "runtime/platform/SocketNative.h"

namespace VornPlatform {
namespace {

using Family = SocketAddress::Family;

template <class Info>
bool readInfo(const cmsghdr* control, int level, int type, Info& info) {
    if (control->cmsg_level != level || control->cmsg_type != type) return false;
    std::memcpy(&info, CMSG_DATA(control), sizeof info);
    return true;
}

SocketAddress destinationOf(msghdr& header) {
    SocketAddress::Bytes bytes{};
    for (cmsghdr* c = CMSG_FIRSTHDR(&header); c != nullptr; c = CMSG_NXTHDR(&header, c)) {
        in_pktinfo v4{};
        in6_pktinfo v6{};
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
void writeInfo(msghdr& header, int level, int type, const Info& info) {
    cmsghdr* const control = CMSG_FIRSTHDR(&header);
    control->cmsg_level = level;
    control->cmsg_type = type;
    control->cmsg_len = CMSG_LEN(sizeof info);
    std::memcpy(CMSG_DATA(control), &info, sizeof info);
    header.msg_controllen = CMSG_SPACE(sizeof info);
}

void setSource(msghdr& header, const SocketAddress& from) {
    if (from.family() == Family::V4) {
        in_pktinfo info{};
        std::memcpy(&info.ipi_spec_dst, from.bytes().data(), 4);
        writeInfo(header, IPPROTO_IP, IP_PKTINFO, info);
    } else {
        in6_pktinfo info{};
        std::memcpy(&info.ipi6_addr, from.bytes().data(), 16);
        info.ipi6_ifindex = from.scope();
        writeInfo(header, IPPROTO_IPV6, IPV6_PKTINFO, info);
    }
}

struct alignas(cmsghdr) ControlSpace {
    char bytes[CMSG_SPACE(sizeof(in6_pktinfo)) + CMSG_SPACE(sizeof(in_pktinfo))];
};

}  // namespace

IoResult receiveFrom(SocketHandle socket, char* buffer, std::size_t size, SocketAddress& from,
                     SocketAddress& to) {
    NativeAddress native;
    ControlSpace control;
    iovec data = piece(buffer, size);
    msghdr header = message(&data, 1);
    const auto result = ioResult(uninterrupted([&] {
        header.msg_name = native.get();
        header.msg_namelen = sizeof native.storage;
        header.msg_control = control.bytes;
        header.msg_controllen = sizeof control.bytes;
        return ::recvmsg(fd(socket), &header, MSG_CMSG_CLOEXEC);
    }));
    if (result.error) return result;
    from = header.msg_namelen == 0 ? SocketAddress{} : fromNative(native.get());
    to = destinationOf(header);
    return result;
}

IoResult sendTo(SocketHandle socket, std::string_view datagram, const SocketAddress& to,
                const SocketAddress& from) {
    NativeAddress native = toNative(to);
    ControlSpace control{};
    iovec data = piece(datagram.data(), datagram.size());
    msghdr header = message(&data, 1);
    header.msg_name = native.get();
    header.msg_namelen = native.length;
    if (from) {
        header.msg_control = control.bytes;
        header.msg_controllen = sizeof control.bytes;
        setSource(header, from);
    }
    return ioResult(uninterrupted([&] { return ::sendmsg(fd(socket), &header, MSG_NOSIGNAL); }));
}

}  // namespace VornPlatform
