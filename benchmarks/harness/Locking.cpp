#include "benchmarks/harness/Locking.h"

#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/PingPong.h"
#include "benchmarks/harness/Requests.h"
#include "runtime/net/WireCodec.h"

#include <atomic>
#include <barrier>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

namespace RuvoBench {
namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

// The first request of wait_ is answered when the second one is being served.
LockClient::LockClient(std::uint16_t port, std::string_view path, std::int32_t waitMs)
    : conversation_(port),
      lock_(batchOf(lockRequest(path, waitMs), 1)),
      wait_(batchHeader(2) + unlockRequest(0) + lockRequest(path, waitMs)),
      unlock_(batchOf(unlockRequest(0), 1)) {}

std::int32_t LockClient::awaitNumber() {
    char answer[kResultBytes];
    receiveExactly(socket(), answer, sizeof answer);
    return static_cast<std::int32_t>(VornNet::decode32(answer));
}

void LockClient::askForLock() { sendAll(socket(), lock_); }

std::int32_t LockClient::awaitHandle() {
    const std::int32_t handle = awaitNumber();
    if (handle <= 0) throw std::runtime_error("a lock was not obtained");
    return handle;
}

void LockClient::askForUnlock(std::int32_t handle) {
    VornNet::encode32(static_cast<std::uint32_t>(handle),
                      unlock_.data() + unlock_.size() - sizeof handle);
    sendAll(socket(), unlock_);
}

void LockClient::awaitDone() {
    if (awaitNumber() != 0) throw std::runtime_error("an unlock was not answered 0");
}

void LockClient::beginToWait() {
    sendAll(socket(), wait_);
    awaitDone();
}

void LockClient::pair() {
    askForLock();
    askForUnlock(awaitHandle());
    awaitDone();
}

double pairP50(LockClient& client, std::chrono::milliseconds slice) {
    std::vector<std::int64_t> times;
    times.reserve(1 << 16);
    auto begin = Clock::now();
    for (const auto end = begin + slice; begin < end;) {
        client.pair();
        const auto now = Clock::now();
        times.push_back(std::chrono::nanoseconds(now - begin).count());
        begin = now;
    }
    return p50Microseconds(times);
}

double pairRate(std::deque<LockClient>& clients, std::chrono::milliseconds slice) {
    Clock::time_point begin;
    std::barrier together(std::ssize(clients), [&begin]() noexcept { begin = Clock::now(); });
    std::atomic<std::uint64_t> pairs{0};
    std::mutex failureMutex;
    std::exception_ptr failure;
    std::vector<std::jthread> threads;
    for (LockClient& client : clients) {
        threads.emplace_back([&] {
            together.arrive_and_wait();
            const auto end = begin + slice;
            std::uint64_t done = 0;
            try {
                for (; Clock::now() < end; ++done) client.pair();
            } catch (...) {
                const std::lock_guard<std::mutex> lock(failureMutex);
                failure = std::current_exception();
            }
            pairs += done;
        });
    }
    threads.clear();  // joins
    const std::chrono::duration<double> took = Clock::now() - begin;
    if (failure) std::rethrow_exception(failure);
    return static_cast<double>(pairs) / took.count();
}

}  // namespace RuvoBench
