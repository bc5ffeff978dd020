#include "tests/support/WireClient.h"

#include "tests/support/TestSupport.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace TestSupport {
namespace {

using VornPlatform::OsError;
using VornPlatform::Socket;
using VornPlatform::SocketAddress;

constexpr std::size_t kLargestRead = 65536;  // no datagram is larger

void check(OsError error, const char* what) {
    if (error) throw std::runtime_error(std::string(what) + ": " + error.text());
}

SocketAddress loopback(std::uint16_t port) { return *SocketAddress::parse("127.0.0.1", port); }

std::uint16_t portOf(const Socket& socket) {
    SocketAddress address;
    check(VornPlatform::localAddress(socket.handle(), address), "local address");
    return address.port();
}

void appendBigEndian(std::string& text, std::uint64_t value, int bytes) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
        text.push_back(static_cast<char>(value >> shift & 0xff));
    }
}

std::uint32_t bigEndian(const std::string& bytes) {
    std::uint32_t value = 0;
    for (const char c : bytes) value = value << 8 | static_cast<unsigned char>(c);
    return value;
}

}  // namespace

// ---- WireText ------------------------------------------------------------------

WireText& WireText::line(std::string_view text) {
    text_.append(text).push_back('\n');
    return *this;
}

WireText& WireText::shortNumber(unsigned value) {
    appendBigEndian(text_, value, 2);
    return *this;
}

WireText& WireText::number(std::int64_t value) {
    appendBigEndian(text_, static_cast<std::uint64_t>(value), 4);
    return *this;
}

WireText& WireText::string(std::string_view text) {
    appendBigEndian(text_, text.size(), 4);
    text_.append(text);
    return *this;
}

WireText& WireText::bytes(std::string_view raw) {
    text_.append(raw);
    return *this;
}

WireText& WireText::request(std::string_view monitor, std::string_view command) {
    return shortNumber(7777).string(monitor).string(command);
}

// ---- WireClient ----------------------------------------------------------------

WireClient::WireClient(std::uint16_t port) {
    check(VornPlatform::connectTcp(loopback(port), socket_), "connect");
    VornPlatform::setNoDelay(socket_.handle(), true);
}

WireClient WireClient::udp(std::uint16_t port) {
    Socket socket;
    check(VornPlatform::connectUdp(loopback(port), socket), "connect");
    return WireClient(std::move(socket));
}

bool WireClient::trySend(std::string_view bytes) {
    do {
        const auto sent = VornPlatform::send(socket_.handle(), bytes.data(), bytes.size());
        if (sent.error) return false;
        bytes.remove_prefix(sent.count);
    } while (!bytes.empty());
    return true;
}

void WireClient::send(std::string_view bytes) {
    if (!trySend(bytes)) throw std::runtime_error("the daemon does not take the bytes");
}

bool WireClient::hasInput(std::chrono::milliseconds bound) {
    VornPlatform::SocketWait wait{.socket = socket_.handle(), .wantRead = true};
    VornPlatform::waitReady({&wait, 1}, static_cast<int>(bound.count()));
    return wait.canRead;
}

std::string WireClient::receive(std::size_t count) {
    if (held_.empty()) {
        const std::size_t room = isDatagrams_ ? kLargestRead : std::min(count, kLargestRead);
        std::string bytes(room, '\0');
        const auto got = VornPlatform::receiveNow(socket_.handle(), bytes.data(), bytes.size());
        bytes.resize(got.error ? 0 : got.count);
        if (!isDatagrams_) return bytes;
        held_ = std::move(bytes);
    }
    const std::string bytes = held_.substr(0, count);
    held_.erase(0, count);
    return bytes;
}

std::string WireClient::read(std::size_t count) {
    std::string bytes;
    while (bytes.size() < count) {
        if (held_.empty() && !hasInput(kPatience)) {
            throw std::runtime_error("got " + std::to_string(bytes.size()) + " of " +
                                     std::to_string(count) + " bytes in time");
        }
        const std::string more = receive(count - bytes.size());
        if (more.empty()) break;
        bytes += more;
    }
    return bytes;
}

std::string WireClient::readDatagram() {
    if (!hasInput(kPatience)) throw std::runtime_error("no datagram came in time");
    std::string bytes(kLargestRead, '\0');
    const auto got = VornPlatform::receiveNow(socket_.handle(), bytes.data(), bytes.size());
    check(got.error, "receive");
    bytes.resize(got.count);
    return bytes;
}

std::int32_t WireClient::readNumber() {
    const std::string bytes = read(4);
    if (bytes.size() != 4) throw std::runtime_error("the stream ended within a number");
    return static_cast<std::int32_t>(bigEndian(bytes));
}

std::string WireClient::readString() {
    return read(static_cast<std::uint32_t>(readNumber()));
}

std::string WireClient::readRest() {
    std::string all;
    for (;;) {
        const std::string byte = read(1);
        if (byte.empty()) return all;
        all += byte;
    }
}

void WireClient::open() {
    send("RUVO\n");
    const std::string answer = read(3);
    if (answer != "+\r\n") throw std::runtime_error("the conversation was not opened: " + answer);
}

void WireClient::finishSending() { VornPlatform::shutdownSend(socket_.handle()); }

void WireClient::sendLast(const WireText& text) {
    const int on = 1;
    ::setsockopt(static_cast<int>(socket_.handle()), IPPROTO_TCP, TCP_CORK, &on, sizeof on);
    send(text);
    finishSending();
}

bool WireClient::hasArrived() const {
    return waitUntil([this] {
        int left = -1;
        ::ioctl(static_cast<int>(socket_.handle()), SIOCOUTQ, &left);
        return left == 0;
    });
}

void WireClient::reset() {
    const linger atOnce{.l_onoff = 1, .l_linger = 0};
    ::setsockopt(static_cast<int>(socket_.handle()), SOL_SOCKET, SO_LINGER, &atOnce,
                 sizeof atOnce);
    socket_.close();
}

// ---- ports ---------------------------------------------------------------------

std::uint16_t freeTcpPort() {
    Socket socket;
    check(VornPlatform::listenTcp(0, 1, "*", socket), "listen");
    return portOf(socket);
}

std::uint16_t freeUdpPort() {
    Socket socket;
    check(VornPlatform::bindUdp(0, "*", socket), "bind");
    return portOf(socket);
}

}  // namespace TestSupport
