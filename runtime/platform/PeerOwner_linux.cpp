#include "runtime/platform/PeerOwner.h"

#include "runtime/platform/Socket.h"
#include "runtime/platform/SocketNative.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>

namespace VornPlatform {
namespace {

using Family = SocketAddress::Family;

constexpr int kListen = 10;  // the kernel's number of the state

struct Question {
    nlmsghdr header;
    inet_diag_req_v2 body;
};

void put(__be32 (&out)[4], const SocketAddress& address) {
    std::memcpy(out, address.bytes().data(), sizeof out);
}

// Both addresses in the same family, IPv4 where they stand for it: the kernel
// finds IPv6 sockets that talk IPv4 under their IPv4 addresses.
Question makeQuestion(Transport transport, const SocketAddress& own, const SocketAddress& other) {
    Question question{};
    question.header.nlmsg_len = sizeof question;
    question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    question.header.nlmsg_flags = NLM_F_REQUEST;
    auto& body = question.body;
    body.sdiag_family = own.family() == Family::V6 ? AF_INET6 : AF_INET;
    body.sdiag_protocol = transport == Transport::Tcp ? IPPROTO_TCP : IPPROTO_UDP;
    body.idiag_states = ~0U;
    // For datagrams the kernel takes the pair as of a datagram that arrives at
    // the socket, for streams as the socket itself sees it.
    const SocketAddress& source = transport == Transport::Tcp ? own : other;
    const SocketAddress& target = transport == Transport::Tcp ? other : own;
    body.id.idiag_sport = htons(source.port());
    body.id.idiag_dport = htons(target.port());
    put(body.id.idiag_src, source);
    put(body.id.idiag_dst, target);
    body.id.idiag_if = own.scope();
    body.id.idiag_cookie[0] = body.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    return question;
}

SocketAddress addressOf(int family, const __be32 (&words)[4], __be16 port) {
    SocketAddress::Bytes bytes{};
    std::memcpy(bytes.data(), words, family == AF_INET ? 4 : 16);
    const Family ours = family == AF_INET ? Family::V4 : Family::V6;
    return SocketAddress(ours, bytes, ntohs(port)).unmapped();
}

bool sameAddress(const SocketAddress& found, const SocketAddress& wanted) {
    return found.bytes() == wanted.bytes() && found.port() == wanted.port();
}

// The kernel also answers with what merely could take the peer's place: a
// listening socket, a remainder of a closed connection, a datagram socket that
// is open to everybody. Of these only the last one is what we asked for.
bool isTheSocket(const inet_diag_msg& found, Transport transport, const SocketAddress& own,
                 const SocketAddress& other) {
    if (found.idiag_inode == 0) return false;
    const SocketAddress its =
        addressOf(found.idiag_family, found.id.idiag_src, found.id.idiag_sport);
    const SocketAddress peer =
        addressOf(found.idiag_family, found.id.idiag_dst, found.id.idiag_dport);
    if (transport == Transport::Tcp) {
        return found.idiag_state != kListen && sameAddress(its, own) && sameAddress(peer, other);
    }
    const bool open = peer.isAny() && peer.port() == 0;
    return its.port() == own.port() && (its.isAny() || sameAddress(its, own)) &&
           (open || sameAddress(peer, other));
}

OsError ask(const Question& question, inet_diag_msg& answer) {
    const int made = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
    if (made < 0) return OsError::last();
    const Socket owner(made);
    const timeval patience{1, 0};  // the kernel answers at once
    ::setsockopt(made, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    const auto sent = ::sendto(made, &question, sizeof question, 0,
                               reinterpret_cast<const sockaddr*>(&kernel), sizeof kernel);
    if (sent != static_cast<ssize_t>(sizeof question)) return OsError::last();

    alignas(nlmsghdr) char buffer[1024];
    const IoResult got = receive(made, buffer, sizeof buffer);
    if (got.error) return got.error;
    nlmsghdr header;
    if (got.count < NLMSG_HDRLEN) return OsError(EPROTO);
    std::memcpy(&header, buffer, sizeof header);
    if (header.nlmsg_type == NLMSG_ERROR && got.count >= NLMSG_LENGTH(sizeof(nlmsgerr))) {
        nlmsgerr problem;
        std::memcpy(&problem, buffer + NLMSG_HDRLEN, sizeof problem);
        return OsError(problem.error == 0 ? EPROTO : -problem.error);
    }
    if (header.nlmsg_type != SOCK_DIAG_BY_FAMILY || got.count < NLMSG_LENGTH(sizeof answer)) {
        return OsError(EPROTO);
    }
    std::memcpy(&answer, buffer + NLMSG_HDRLEN, sizeof answer);
    return {};
}

}  // namespace

PeerOwnerResult findPeerOwner(Transport transport, const SocketAddress& peer,
                              const SocketAddress& local) {
    const SocketAddress own = peer.unmapped();
    const SocketAddress other = local.unmapped();
    if (!own || own.family() != other.family()) return {nullptr, OsError(EINVAL)};
    inet_diag_msg found{};
    if (const auto error = ask(makeQuestion(transport, own, other), found)) {
        return {nullptr, error};
    }
    if (!isTheSocket(found, transport, own, other)) return {nullptr, OsError(ENOENT)};
    return {makeOwnerOfUser(found.idiag_uid), {}};
}

}  // namespace VornPlatform
