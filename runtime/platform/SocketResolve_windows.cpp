#include "runtime/platform/SocketAddress.h"

#include "runtime/platform/SocketCalls_windows.h"
#include "runtime/platform/SocketNative.h"
#include "runtime/platform/WideText_windows.h"

#include <windows.h>

#include <iphlpapi.h>

#include <memory>
#include <vector>

namespace VornPlatform {

Resolved resolve(const std::string& host, std::uint16_t port) {
    Resolved result;
    if (const auto numeric = SocketAddress::parse(host, port)) {
        result.addresses.push_back(*numeric);
        return result;
    }
    ADDRINFOW hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    ADDRINFOW* list = nullptr;
    result.error = startSockets();
    if (!result.error) {
        result.error = OsError(::GetAddrInfoW(toWide(host).c_str(), nullptr, &hints, &list));
    }
    const std::unique_ptr<ADDRINFOW, decltype(&::FreeAddrInfoW)> owner(list, &::FreeAddrInfoW);
    for (const ADDRINFOW* entry = list; entry != nullptr; entry = entry->ai_next) {
        SocketAddress address = fromNative(entry->ai_addr);
        address.setPort(port);
        if (address) result.addresses.push_back(address);
    }
    if (result.addresses.empty() && !result.error) result.error = OsError(WSAHOST_NOT_FOUND);
    if (result.error) result.problem = result.error.text();
    return result;
}

bool isOwnAddress(const SocketAddress& address) {
    if (!address || address.isAny()) return false;
    if (address.isLoopback()) return true;
    ULONG size = 16 * 1024;
    std::vector<char> space;
    ULONG failed = ERROR_BUFFER_OVERFLOW;
    // Interfaces may appear between the calls.
    for (int i = 0; i < 4 && failed == ERROR_BUFFER_OVERFLOW; ++i) {
        space.resize(size);
        constexpr ULONG kFlags = GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST |
                                 GAA_FLAG_SKIP_DNS_SERVER | GAA_FLAG_SKIP_FRIENDLY_NAME;
        failed =
            ::GetAdaptersAddresses(AF_UNSPEC, kFlags, nullptr,
                                   reinterpret_cast<IP_ADAPTER_ADDRESSES*>(space.data()), &size);
    }
    if (failed != NO_ERROR) return false;
    const auto* adapter = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(space.data());
    for (; adapter != nullptr; adapter = adapter->Next) {
        for (const auto* u = adapter->FirstUnicastAddress; u != nullptr; u = u->Next) {
            if (fromNative(u->Address.lpSockaddr).sameHost(address)) return true;
        }
    }
    return false;
}

}  // namespace VornPlatform
