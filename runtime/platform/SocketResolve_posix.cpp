#include "runtime/platform/SocketAddress.h"

#include "runtime/platform/SocketNative.h"

#include <ifaddrs.h>
#include <netdb.h>

#include <cerrno>
#include <memory>

namespace VornPlatform {

Resolved resolve(const std::string& host, std::uint16_t port) {
    Resolved result;
    if (const auto numeric = SocketAddress::parse(host, port)) {
        result.addresses.push_back(*numeric);
        return result;
    }
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    const int failed = ::getaddrinfo(host.c_str(), nullptr, &hints, &list);
    if (failed != 0) {
        result.error = failed == EAI_SYSTEM ? OsError::last() : OsError(ENOENT);
        result.problem = failed == EAI_SYSTEM ? result.error.text() : ::gai_strerror(failed);
        return result;
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(list, &::freeaddrinfo);
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
        SocketAddress address = fromNative(entry->ai_addr);
        address.setPort(port);
        if (address) result.addresses.push_back(address);
    }
    if (result.addresses.empty()) {
        result.error = OsError(ENOENT);
        result.problem = result.error.text();
    }
    return result;
}

bool isOwnAddress(const SocketAddress& address) {
    if (!address || address.isAny()) return false;
    if (address.isLoopback()) return true;
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) return false;
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, &::freeifaddrs);
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        const sockaddr* const own = entry->ifa_addr;
        if (own != nullptr && fromNative(own).sameHost(address)) return true;
    }
    return false;
}

}  // namespace VornPlatform
