#include "benchmarks/bare/BareServers.h"
#include "benchmarks/harness/BlockingSocket.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace RuvoBench {
namespace {

// From the client's thread to the writing one.
struct Hop {
    std::mutex mutex;
    std::condition_variable changed;
    int waiting = 0;

    void pass() {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            ++waiting;
        }
        changed.notify_one();
    }
    void take() {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return waiting > 0; });
        --waiting;
    }
};

}  // namespace

void serveHop(std::size_t request, std::size_t answer, std::size_t delivery, std::uint16_t port) {
    std::uint16_t own = 0;
    const Fd listening = listenOnLoopback(own);
    Hop hop;
    const Fd listener = connectToLoopback(port);
    std::thread([&hop, bytes = std::string(delivery, 'd'), to = listener.get()] {
        for (;;) {
            hop.take();
            sendAll(to, bytes);
        }
    }).detach();

    announcePort(own);
    const std::string answerBytes(answer, 'a');
    std::vector<char> buffer(request);
    for (;;) {
        const Fd client = acceptClient(listening.get(), -1);
        while (receiveOrEnd(client.get(), buffer.data(), request)) {
            hop.pass();
            sendAll(client.get(), answerBytes);
        }
    }
}

}  // namespace RuvoBench
