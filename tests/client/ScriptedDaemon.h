#pragma once

#include "client/RuvoClient.h"
#include "runtime/platform/Socket.h"

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace ClientTest {

// The wire's encoding written down once more, so that a mistake in the one that
// the library uses shows.
std::string u16(unsigned value);
std::string i32(std::int64_t value);
std::string str(std::string_view text);
std::string bytes(std::initializer_list<int> values);
// One engine request with its code: 7777, monitor, command, arguments.
std::string engineRequest(std::string_view monitor, std::string_view command,
                          std::string_view arguments = {});
// A delivery's bytes.
std::string delivery(std::int64_t handle, std::string_view sender, std::string_view event,
                     std::string_view message, std::string_view data = {});

// The daemon's end of one conversation. Its calls throw std::runtime_error when
// the client does not do its part within a bound.
class ScriptedPeer {
public:
    virtual ~ScriptedPeer() = default;

    // Exactly so many bytes of what the client sent.
    virtual std::string read(std::size_t size) = 0;
    virtual void send(std::string_view bytes) = 0;
    // Returns when the client has closed its end; what it sent before is dropped.
    virtual void awaitClose() = 0;
    virtual void close() = 0;

    // The opening as it goes for a client that may use the engines.
    void open();
    // Reads exactly these bytes; anything else is a failure of the test.
    void expect(std::string_view bytes);
    // A count of one, this request, and its answer.
    void serve(std::string_view request, std::string_view answer);
};

// Serves one client on a free loopback port with a script of the test's, or
// several one after the other with a script each, on a thread of its own. A script
// that throws fails the test.
class ScriptedDaemon {
public:
    using Script = std::function<void(ScriptedPeer&)>;
    enum class Transport { Tcp, Udp };

    explicit ScriptedDaemon(Script script, Transport transport = Transport::Tcp)
        : ScriptedDaemon(std::vector<Script>{std::move(script)}, transport) {}
    explicit ScriptedDaemon(std::vector<Script> scripts, Transport transport = Transport::Tcp);
    ~ScriptedDaemon();
    ScriptedDaemon(const ScriptedDaemon&) = delete;
    ScriptedDaemon& operator=(const ScriptedDaemon&) = delete;

    std::uint16_t port() const { return port_; }
    // Options that lead a client here.
    Ruvo::RuvoClientOptions options() const;
    // Waits for the end of the script.
    void join();
    // The sizes of the datagrams that came; after join().
    const std::vector<std::size_t>& datagramSizes() const { return datagramSizes_; }

private:
    void serve(const Script& script);

    VornPlatform::Socket socket_;
    const Transport transport_;
    std::uint16_t port_ = 0;
    std::vector<std::size_t> datagramSizes_;
    std::thread thread_;
};

// A port on which nothing listens.
std::uint16_t unusedPort();

}  // namespace ClientTest
