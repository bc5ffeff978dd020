#include "benchmarks/harness/PingPong.h"

#include "benchmarks/harness/BlockingSocket.h"

#include <algorithm>
#include <atomic>
#include <barrier>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace RuvoBench {
namespace {

using Clock = std::chrono::steady_clock;

void roundTrip(int socket, std::string_view request, std::vector<char>& answer) {
    sendAll(socket, request);
    receiveExactly(socket, answer.data(), answer.size());
}

}  // namespace

double p50Microseconds(std::vector<std::int64_t>& nanoseconds) {
    if (nanoseconds.empty()) throw std::runtime_error("nothing was measured");
    const auto middle = nanoseconds.begin() + std::ssize(nanoseconds) / 2;
    std::nth_element(nanoseconds.begin(), middle, nanoseconds.end());
    return static_cast<double>(*middle) / 1000.0;
}

double latencyP50(int socket, std::string_view request, std::size_t answer,
                  std::chrono::milliseconds slice) {
    std::vector<char> buffer(answer);
    std::vector<std::int64_t> times;
    times.reserve(1 << 16);
    auto begin = Clock::now();
    const auto end = begin + slice;
    while (begin < end) {
        roundTrip(socket, request, buffer);
        const auto now = Clock::now();
        times.push_back(std::chrono::nanoseconds(now - begin).count());
        begin = now;
    }
    return p50Microseconds(times);
}

double roundTripRate(const std::vector<int>& sockets, std::string_view request,
                     std::size_t answer, std::chrono::milliseconds slice) {
    Clock::time_point begin;
    std::barrier together(std::ssize(sockets), [&begin]() noexcept { begin = Clock::now(); });
    std::atomic<std::uint64_t> trips{0};
    std::mutex failureMutex;
    std::exception_ptr failure;
    std::vector<std::jthread> clients;
    for (const int socket : sockets) {
        clients.emplace_back([&, socket] {
            std::vector<char> buffer(answer);
            together.arrive_and_wait();
            const auto end = begin + slice;
            std::uint64_t done = 0;
            try {
                for (; Clock::now() < end; ++done) roundTrip(socket, request, buffer);
            } catch (...) {
                const std::lock_guard<std::mutex> lock(failureMutex);
                failure = std::current_exception();
            }
            trips += done;
        });
    }
    clients.clear();  // joins
    const std::chrono::duration<double> took = Clock::now() - begin;
    if (failure) std::rethrow_exception(failure);
    return static_cast<double>(trips) / took.count();
}

}  // namespace RuvoBench
