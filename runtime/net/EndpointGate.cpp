#include "runtime/net/EndpointGate.h"

#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"

namespace VornNet {

using VornPlatform::SocketWait;
using VornSupport::VornMutexLock;

EndpointGate::EndpointGate() {
    if (const auto error = waker_.open()) {
        throw VornSupport::VornException("EndpointGate: no descriptor to be woken by", error);
    }
}

bool EndpointGate::enter() {
    VornMutexLock lock(mutex_);
    if (isClosed()) return false;
    ++inside_;
    return true;
}

void EndpointGate::leave() {
    VornMutexLock lock(mutex_);
    --inside_;
    left_.notifyAll();
}

void EndpointGate::wait(VornPlatform::SocketHandle socket, int ms) {
    SocketWait waits[] = {{.socket = socket, .wantRead = true},
                          {.socket = waker_.handle(), .wantRead = true}};
    VornPlatform::waitReady(waits, ms);
}

bool EndpointGate::close() {
    VornMutexLock lock(mutex_);
    const bool first = !closed_.exchange(true, std::memory_order_acq_rel);
    if (first) waker_.wake();
    while (inside_ != 0) left_.wait(mutex_);
    return first;
}

void QuietLog::write(int level, const std::string& text) {
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) {
        ++kept_;
        return;
    }
    next_ = now + std::chrono::seconds(1);
    if (kept_ != 0) {
        VORN_LOG(level, text << " (and " << kept_ << " more before)");
    } else {
        VORN_LOG(level, text);
    }
    kept_ = 0;
}

}  // namespace VornNet
