#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/SocketAddress.h"
#include "runtime/support/VornMutex.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <string>

namespace VornNet {

// Asks the system's name service, which may take long, for those who cannot
// wait: on at most kMostThreads threads ("VornResolve") that exist while there
// is something to ask. Any thread.
class VORN_EXPORT VornHostLookup {
public:
    using Done = std::function<void(VornPlatform::Resolved)>;

    static constexpr int kMostThreads = 4;

    static VornHostLookup& getInstance();

    // `done` is called once, on another thread, with no lock held. Throws
    // VornException when there is no thread to ask on, and then never calls it.
    void find(const std::string& host, std::uint16_t port, Done done) VORN_EXCLUDES(mutex_);

private:
    struct Question {
        std::string host;
        std::uint16_t port;
        Done done;
    };

    static void enter(void* self);
    void answerAll() VORN_EXCLUDES(mutex_);

    VornSupport::VornMutex mutex_;
    std::deque<Question> questions_ VORN_GUARDED_BY(mutex_);
    int threads_ VORN_GUARDED_BY(mutex_) = 0;
};

}  // namespace VornNet
