#pragma once

#include "runtime/platform/Socket.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace TestSupport {

// What a client of the engines puts on the wire, written down once more so that
// the daemon's own encoding is not its own witness: integers big-endian, strings
// as their length and their bytes.
class WireText {
public:
    WireText& line(std::string_view text);       // with "\n"
    WireText& shortNumber(unsigned value);       // 16 bits: a count or a code
    WireText& number(std::int64_t value);        // 32 bits
    WireText& string(std::string_view text);
    WireText& bytes(std::string_view raw);
    // The code 7777, the monitor and the command, whose arguments follow.
    WireText& request(std::string_view monitor, std::string_view command);

    const std::string& text() const { return text_; }

private:
    std::string text_;
};

// A client at the level of bytes, on loopback TCP or UDP. Every wait is bounded:
// what does not come in time throws std::runtime_error.
class WireClient {
public:
    // Connects to a TCP port of this machine.
    explicit WireClient(std::uint16_t port);
    // A UDP client of a port; each send is one datagram. Reads take the datagrams
    // that come as one stream of bytes, but for readDatagram().
    static WireClient udp(std::uint16_t port);

    void send(std::string_view bytes);
    void send(const WireText& text) { send(text.text()); }
    // As send, for a peer that may have closed already: false when it has.
    bool trySend(std::string_view bytes);

    // Exactly `count` bytes, fewer only when the stream ends before.
    std::string read(std::size_t count);
    std::string readDatagram();
    std::int32_t readNumber();
    std::string readString();
    // Everything up to the end of the stream, a reset included.
    std::string readRest();
    // Whether bytes, or the end, are there within `bound`.
    bool hasInput(std::chrono::milliseconds bound);

    // Opens the conversation; throws when the daemon does not answer with "+".
    void open();

    void finishSending();  // half-closes
    // Sends the bytes and half-closes so that both arrive at one moment.
    void sendLast(const WireText& text);
    // Whether the other side's system has, or gets in time, all that was sent, a
    // half-close included.
    bool hasArrived() const;
    void close() { socket_.close(); }
    // Closes so that the peer sees a reset.
    void reset();

private:
    explicit WireClient(VornPlatform::Socket socket)
        : socket_(std::move(socket)), isDatagrams_(true) {}
    // At most `count` bytes of what is there; empty at the end.
    std::string receive(std::size_t count);

    VornPlatform::Socket socket_;
    bool isDatagrams_ = false;
    std::string held_;  // of the last datagram, not read yet
};

// A TCP or UDP port of loopback that nobody uses at the moment.
std::uint16_t freeTcpPort();
std::uint16_t freeUdpPort();

}  // namespace TestSupport
