#include "runtime/platform/PeerOwner.h"

#include "runtime/platform/Socket.h"
#include "runtime/platform/SocketNative.h"
#include "runtime/platform/WideText_windows.h"

#include <windows.h>

#include <iphlpapi.h>

#include <vector>

namespace VornPlatform {
namespace {

using Family = SocketAddress::Family;

class Handle {
public:
    Handle() = default;
    explicit Handle(HANDLE handle) : handle_(handle) {}
    ~Handle() {
        if (handle_ != nullptr) ::CloseHandle(handle_);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    HANDLE get() const { return handle_; }
    HANDLE* out() { return &handle_; }

private:
    HANDLE handle_ = nullptr;
};

// ---- from the pair of addresses to the process

SocketAddress v4(DWORD address, DWORD port) {
    SocketAddress::Bytes bytes{};
    std::memcpy(bytes.data(), &address, 4);
    return SocketAddress(Family::V4, bytes, ntohs(static_cast<u_short>(port)));
}

SocketAddress v6(const UCHAR (&address)[16], DWORD port) {
    SocketAddress::Bytes bytes{};
    std::memcpy(bytes.data(), address, 16);
    return SocketAddress(Family::V6, bytes, ntohs(static_cast<u_short>(port))).unmapped();
}

// One socket of the system's tables; without `remote` it is open to everybody.
struct Entry {
    SocketAddress local;
    SocketAddress remote;
    DWORD process;
};

Entry entryOf(const MIB_TCPROW_OWNER_PID& row) {
    return {v4(row.dwLocalAddr, row.dwLocalPort), v4(row.dwRemoteAddr, row.dwRemotePort),
            row.dwOwningPid};
}
Entry entryOf(const MIB_TCP6ROW_OWNER_PID& row) {
    return {v6(row.ucLocalAddr, row.dwLocalPort), v6(row.ucRemoteAddr, row.dwRemotePort),
            row.dwOwningPid};
}
Entry entryOf(const MIB_UDPROW_OWNER_PID& row) {
    return {v4(row.dwLocalAddr, row.dwLocalPort), {}, row.dwOwningPid};
}
Entry entryOf(const MIB_UDP6ROW_OWNER_PID& row) {
    return {v6(row.ucLocalAddr, row.dwLocalPort), {}, row.dwOwningPid};
}

// Fetches a table whose size changes while we look, and visits its rows.
template <class Table, class Fetch, class Visit>
OsError walk(Fetch fetch, Visit visit) {
    std::vector<char> space;
    DWORD size = 16 * 1024;
    DWORD failed = ERROR_INSUFFICIENT_BUFFER;
    for (int i = 0; i < 8 && failed == ERROR_INSUFFICIENT_BUFFER; ++i) {
        space.resize(size + size / 4);
        size = static_cast<DWORD>(space.size());
        failed = fetch(space.data(), &size);
    }
    if (failed != NO_ERROR) return OsError(static_cast<int>(failed));
    const auto* table = reinterpret_cast<const Table*>(space.data());
    for (DWORD i = 0; i < table->dwNumEntries; ++i) visit(entryOf(table->table[i]));
    return {};
}

template <class Table, class Visit>
OsError walkTcp(ULONG family, Visit visit) {
    return walk<Table>(
        [family](void* out, DWORD* size) {
            return ::GetExtendedTcpTable(out, size, FALSE, family, TCP_TABLE_OWNER_PID_ALL, 0);
        },
        visit);
}

template <class Table, class Visit>
OsError walkUdp(ULONG family, Visit visit) {
    return walk<Table>(
        [family](void* out, DWORD* size) {
            return ::GetExtendedUdpTable(out, size, FALSE, family, UDP_TABLE_OWNER_PID, 0);
        },
        visit);
}

bool sameAddress(const SocketAddress& a, const SocketAddress& b) {
    return a.family() == b.family() && a.bytes() == b.bytes() && a.port() == b.port();
}

// What is known about the socket we look for. Process 0 stands for "nobody any
// more" (a closed connection that lingers) and for "not told".
struct Found {
    bool socket = false;
    DWORD process = 0;
};

OsError findStream(const SocketAddress& own, const SocketAddress& other, Found& found) {
    const auto visit = [&](const Entry& entry) {
        if (sameAddress(entry.local, own) && sameAddress(entry.remote, other)) {
            found = {true, entry.process};
        }
    };
    if (own.family() == Family::V4) {
        const OsError error = walkTcp<MIB_TCPTABLE_OWNER_PID>(AF_INET, visit);
        if (error || found.socket) return error;
    }
    // IPv6 sockets that talk IPv4 may stand here.
    return walkTcp<MIB_TCP6TABLE_OWNER_PID>(AF_INET6, visit);
}

// A socket of exactly the address comes before one of all addresses. Two
// processes that share a port cannot be told apart: no answer.
struct DatagramChoice {
    DWORD process = 0;
    int rank = 0;
    bool shared = false;

    void offer(DWORD candidate, int itsRank) {
        if (itsRank < rank) return;
        shared = itsRank == rank && candidate != process;
        process = candidate;
        rank = itsRank;
    }
};

OsError findDatagram(const SocketAddress& own, Found& found) {
    DatagramChoice choice;
    const auto visit = [&](const Entry& entry) {
        if (entry.local.port() != own.port()) return;
        if (sameAddress(entry.local, own)) choice.offer(entry.process, 2);
        // "::" may serve IPv4 too.
        const bool covers = entry.local.family() == own.family() || own.family() == Family::V4;
        if (covers && entry.local.isAny()) choice.offer(entry.process, 1);
    };
    if (own.family() == Family::V4) {
        if (const auto e = walkUdp<MIB_UDPTABLE_OWNER_PID>(AF_INET, visit)) return e;
    }
    if (const auto e = walkUdp<MIB_UDP6TABLE_OWNER_PID>(AF_INET6, visit)) return e;
    found = {choice.rank > 0, choice.shared ? 0 : choice.process};
    return {};
}

OsError findProcess(Transport transport, const SocketAddress& own, const SocketAddress& other,
                    DWORD& process) {
    Found found;
    const OsError error =
        transport == Transport::Tcp ? findStream(own, other, found) : findDatagram(own, found);
    if (error) return error;
    process = found.process;
    if (!found.socket) return OsError(ERROR_NOT_FOUND);
    return found.process == 0 ? OsError(ERROR_ACCESS_DENIED) : OsError{};
}

// ---- from the process to the user

std::vector<char> userOf(HANDLE token) {
    DWORD size = 0;
    ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    std::vector<char> space(size);
    if (!::GetTokenInformation(token, TokenUser, space.data(), size, &size)) return {};
    return space;
}

PSID sidIn(const std::vector<char>& user) {
    return reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid;
}

std::string accountName(PSID sid) {
    wchar_t name[256];
    wchar_t domain[256];
    DWORD nameLength = 256;
    DWORD domainLength = 256;
    SID_NAME_USE use;
    if (!::LookupAccountSidW(nullptr, sid, name, &nameLength, domain, &domainLength, &use)) {
        return "an unknown user";
    }
    return toUtf8(domain) + "\\" + toUtf8(name);
}

class ProcessUser : public PeerOwner {
public:
    explicit ProcessUser(DWORD process) : process_(process) {}

    // Takes the process's user and a token that group questions can be put to.
    OsError open() {
        const Handle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_));
        if (process.get() == nullptr) return OsError::last();
        Handle primary;
        if (!::OpenProcessToken(process.get(), TOKEN_QUERY | TOKEN_DUPLICATE, primary.out())) {
            return OsError::last();
        }
        user_ = userOf(primary.get());
        if (user_.empty()) return OsError::last();
        if (!::DuplicateTokenEx(primary.get(), TOKEN_QUERY, nullptr, SecurityIdentification,
                                TokenImpersonation, token_.out())) {
            return OsError::last();
        }
        return {};
    }

    bool isCurrentUser() const override {
        Handle own;
        if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, own.out())) return false;
        const auto user = userOf(own.get());
        return !user.empty() && ::EqualSid(sidIn(user), sidIn(user_));
    }

    bool isAdministrator() const override {
        alignas(8) char sid[SECURITY_MAX_SID_SIZE];
        DWORD size = sizeof sid;
        return ::CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid, &size) &&
               hasGroup(sid);
    }

    bool isMemberOf(const std::string& group) const override {
        if (group.empty()) return false;
        alignas(8) char sid[SECURITY_MAX_SID_SIZE];
        wchar_t domain[256];
        DWORD size = sizeof sid;
        DWORD domainLength = 256;
        SID_NAME_USE use;
        if (!::LookupAccountNameW(nullptr, toWide(group).c_str(), sid, &size, domain, &domainLength,
                                  &use)) {
            return false;
        }
        const bool isGroup =
            use == SidTypeGroup || use == SidTypeAlias || use == SidTypeWellKnownGroup;
        return isGroup && hasGroup(sid);
    }

    std::string describe() const override {
        return "process " + std::to_string(process_) + " of " + accountName(sidIn(user_));
    }

private:
    bool hasGroup(PSID sid) const {
        BOOL member = FALSE;
        return ::CheckTokenMembership(token_.get(), sid, &member) && member;
    }

    const DWORD process_;
    std::vector<char> user_;
    Handle token_;
};

}  // namespace

PeerOwner::~PeerOwner() = default;

PeerOwnerResult findPeerOwner(Transport transport, const SocketAddress& peer,
                              const SocketAddress& local) {
    const SocketAddress own = peer.unmapped();
    const SocketAddress other = local.unmapped();
    if (!own || own.family() != other.family()) return {nullptr, OsError(ERROR_INVALID_PARAMETER)};
    DWORD process = 0;
    if (const auto error = findProcess(transport, own, other, process)) return {nullptr, error};
    auto owner = std::make_unique<ProcessUser>(process);
    if (const auto error = owner->open()) return {nullptr, error};
    // The number may have passed to another process before we opened it: then
    // the socket is gone, too.
    DWORD still = 0;
    if (const auto error = findProcess(transport, own, other, still)) return {nullptr, error};
    if (still != process) return {nullptr, OsError(ERROR_NOT_FOUND)};
    return {std::move(owner), {}};
}

std::unique_ptr<PeerOwner> makeOwnerOfUser(std::uint32_t) { return nullptr; }

}  // namespace VornPlatform
