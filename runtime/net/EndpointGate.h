#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/Socket.h"
#include "runtime/support/VornMutex.h"

#include <atomic>
#include <chrono>
#include <string>

namespace VornNet {

// Lets close() of one thread end the waitForClient of another, and hold on until
// that one has left, so that the endpoint's socket can then be closed.
class VORN_EXPORT EndpointGate {
public:
    EndpointGate();  // throws VornException when the system has no descriptor left

    // Around every stay in waitForClient. False: closed, do not go in.
    class Visit {
    public:
        explicit Visit(EndpointGate& gate) : gate_(gate), inside_(gate.enter()) {}
        ~Visit() {
            if (inside_) gate_.leave();
        }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;
        explicit operator bool() const { return inside_; }

    private:
        EndpointGate& gate_;
        const bool inside_;
    };

    bool isClosed() const { return closed_.load(std::memory_order_acquire); }
    // Inside only: waits until `socket` is readable, the gate is closed, or `ms`
    // have passed (negative: for ever).
    void wait(VornPlatform::SocketHandle socket, int ms);
    // Closes, and waits until nobody is inside. True for the first call.
    bool close();

private:
    bool enter();
    void leave();

    VornPlatform::SocketWaker waker_;
    std::atomic<bool> closed_{false};
    VornSupport::VornMutex mutex_;
    VornSupport::VornCondition left_;
    int inside_ VORN_GUARDED_BY(mutex_) = 0;
};

// A line for something that a hostile peer can cause at any rate: at most one a
// second, with the number of those that were kept back. One thread.
class QuietLog {
public:
    void write(int level, const std::string& text);

private:
    std::chrono::steady_clock::time_point next_{};
    unsigned long kept_ = 0;
};

}  // namespace VornNet
