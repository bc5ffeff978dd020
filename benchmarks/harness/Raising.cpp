#include "benchmarks/harness/Raising.h"

#include "benchmarks/harness/BlockingSocket.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <thread>
#include <vector>

namespace RuvoBench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kUnderWay = 4;

void raise(int socket, std::uint64_t batches,
           const std::function<std::string_view(std::uint64_t)>& batch, std::size_t answerBytes) {
    std::vector<char> answers(answerBytes);
    std::uint64_t answered = 0;
    for (std::uint64_t sent = 0; sent < batches; ++sent) {
        sendAll(socket, batch(sent));
        if (sent + 1 - answered < kUnderWay) continue;
        receiveExactly(socket, answers.data(), answerBytes);
        ++answered;
    }
    for (; answered < batches; ++answered) {
        receiveExactly(socket, answers.data(), answerBytes);
    }
}

}  // namespace

double raiseWhile(int socket, std::uint64_t batches,
                  const std::function<std::string_view(std::uint64_t)>& batch,
                  std::size_t answerBytes, const std::function<void()>& meanwhile) {
    std::exception_ptr failure;
    std::chrono::duration<double> took{};
    {
        const auto begin = Clock::now();
        const std::jthread raiser([&] {
            try {
                raise(socket, batches, batch, answerBytes);
            } catch (...) {
                failure = std::current_exception();
            }
        });
        meanwhile();
        took = Clock::now() - begin;
    }
    if (failure) std::rethrow_exception(failure);
    return took.count();
}

std::uint64_t calibrate(const std::function<double(std::uint64_t)>& measure, double target) {
    constexpr std::uint64_t kMost = 1ULL << 32;
    std::uint64_t units = 1;
    double took = measure(units);
    while (took < target / 4 && units < kMost) {
        units *= 2;
        took = measure(units);
    }
    const double wanted = static_cast<double>(units) * target / took;
    return std::max<std::uint64_t>(1, static_cast<std::uint64_t>(wanted));
}

}  // namespace RuvoBench
