// What hostile and broken clients send at once: each of their connections ends,
// and nothing else changes.

#include "runtime/net/VornUDPServerSocket.h"
#include "runtime/net/WireCodec.h"
#include "tests/runtime/net/NetTest.h"
#include "tests/runtime/platform/NativeProbe.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

using namespace NetTest;
using TestSupport::waitUntil;
using VornNet::VornAcceptedConnections;
using VornPlatform::Socket;
using VornSupport::VornException;

namespace {

constexpr int kClients = 1000;

// An engine conversation of the shape that the daemon serves.
void serve(VornNet::VornConnection& connection, std::atomic<int>& requests) {
    try {
        char line[512];
        bool closed = false;
        connection.setRawMode(true);
        if (std::string(connection.readLine(line, sizeof line, closed)) != "RUVO") return;
        int count = 0;
        connection.write("+\r\n", 3, count);
        connection.setRawMode(false);
        for (;;) {
            for (int left = connection.readUnsignedShort(); left > 0; --left) {
                if (connection.readUnsignedShort() != 7777) throw VornException("unknown");
                std::string name;
                connection.readString(name);
                VornNet::readBlock(connection, connection.readInt(), "data");
                connection.writeInt(0);
                ++requests;
                connection.flush();
            }
        }
    } catch (const VornException&) {
        // the conversation ends
    }
}

std::string goodRequest() {
    std::string bytes;
    VornNet::append16(bytes, 1);
    VornNet::append16(bytes, 7777);
    VornNet::appendString(bytes, "Notifier");
    VornNet::appendInt(bytes, 3);
    return bytes + "abc";
}

std::string rubbish(int kind, std::mt19937& random) {
    const std::string good = "RUVO\n" + goodRequest();
    std::string bytes;
    switch (kind % 7) {
        case 0: return good.substr(0, random() % good.size());
        case 1:
            for (int i = 0; i < 3000; ++i) bytes.push_back(static_cast<char>(random()));
            return bytes;
        case 2: return std::string(100'000, 'x');
        case 3: return std::string("RUVO\n\0\1\x1e\x61\xff\xff\xff\xff", 13);
        case 4:
            bytes = std::string("RUVO\n\0\1\x1e\x61\0\0\0\0\xff\xff\xff\xff", 17);
            return bytes;
        case 5:
            bytes = "RUVO\r\n";
            for (int i = 0; i < 500; ++i) bytes.push_back(static_cast<char>(random()));
            return bytes;
        default: return "";
    }
}

class Daemon {
public:
    Daemon() : server(0, 5), thread_([this] { run(); }) {}
    ~Daemon() {
        server.close();
        thread_.join();
        for (auto& thread : served_) thread.join();
    }
    VornNet::VornServerSocket server;
    std::atomic<int> requests{0};
    std::atomic<int> clients{0};

private:
    void run() {
        while (auto client = server.waitForClient(true)) {
            served_.emplace_back([this, client = std::move(client)] {
                serve(*client, requests);
                client->close();
            });
            ++clients;
        }
    }
    std::vector<std::thread> served_;
    std::thread thread_;
};

}  // namespace

TEST(VornServerSocket, OutlivesAThousandClientsOfRubbish) {
    { Daemon warm; }
    const int handles = NativeProbe::countHandles();
    const int threads = NativeProbe::countThreads();
    {
        Daemon daemon;
        const Socket witness = connectTo(daemon.server.getPort());
        sendBytes(witness, "RUVO\n");
        EXPECT_EQ(TestSupport::readBytes(witness, 3), "+\r\n");

        std::mt19937 random(20260301);
        std::vector<Socket> clients;
        for (int i = 0; i < kClients; ++i) clients.push_back(connectTo(daemon.server.getPort()));
        for (int i = 0; i < kClients; ++i) {
            const std::string bytes = rubbish(i, random);
            // The server may end the conversation while we still send.
            VornPlatform::setNonBlocking(clients[static_cast<std::size_t>(i)].handle(), true);
            VornPlatform::send(clients[static_cast<std::size_t>(i)].handle(), bytes.data(),
                               bytes.size());
        }
        EXPECT_TRUE(waitUntil([&] { return daemon.clients == kClients + 1; }));
        clients.clear();
        EXPECT_TRUE(
            waitUntil([&] { return VornAcceptedConnections::getInstance().size() == 1; }));

        const int before = daemon.requests;
        sendBytes(witness, goodRequest());
        EXPECT_EQ(TestSupport::readBytes(witness, 4), std::string(4, '\0'));
        EXPECT_EQ(daemon.requests, before + 1);
        EXPECT_EQ(VornAcceptedConnections::getInstance().abortAll(), 1);
    }
    EXPECT_EQ(VornAcceptedConnections::getInstance().size(), 0);
    EXPECT_TRUE(waitUntil([&] { return NativeProbe::countThreads() <= threads; }));
    EXPECT_LE(NativeProbe::countHandles(), handles);
}

TEST(VornUDPServerSocket, OutlivesRubbishOfManyPeers) {
    VornNet::VornUDPServerSocket server(0, "127.0.0.1");
    std::mt19937 random(20260302);
    std::atomic<int> requests{0};
    std::vector<Socket> peers;
    std::vector<ConnectionPointer> connections;
    std::size_t begun = 0;
    for (int i = 0; i < 100; ++i) {
        peers.push_back(udpTo(server.getPort()));
        const std::string bytes = rubbish(i, random).substr(0, 60'000);
        if (!bytes.empty()) ++begun;
        sendBytes(peers.back(), bytes);
        sendBytes(peers.back(), "");
        while (auto client = server.waitForClient(false)) connections.push_back(client);
    }
    EXPECT_EQ(connections.size(), begun);
    for (auto& connection : connections) {
        serve(*connection, requests);
        EXPECT_TRUE(connection->isPeerGone());
        connection->close();
    }
    connections.clear();
    EXPECT_EQ(VornAcceptedConnections::getInstance().size(), 0);
}
