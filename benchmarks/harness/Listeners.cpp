#include "benchmarks/harness/Listeners.h"

#include "benchmarks/harness/BlockingSocket.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace RuvoBench {
namespace {

constexpr int kPatienceMs = 10000;
constexpr int kPatienceSeconds = kPatienceMs / 1000;
constexpr std::size_t kReadBytes = 64 * 1024;

}  // namespace

Listeners::Listeners(std::size_t count)
    : places_(count), epoll_(::epoll_create1(EPOLL_CLOEXEC)), buffer_(kReadBytes) {
    if (!epoll_) throwErrno("epoll_create1");
    for (auto& place : places_) place.listener = listenOnLoopback(place.port);
}

std::string Listeners::remoteName(std::size_t index) const {
    return "tcp:127.0.0.1:" + std::to_string(places_[index].port);
}

std::string Listeners::ports() const {
    std::string list;
    for (const auto& place : places_) {
        if (!list.empty()) list += ',';
        list += std::to_string(place.port);
    }
    return list;
}

void Listeners::acceptAll() {
    for (auto& place : places_) {
        place.connection = acceptClient(place.listener.get(), kPatienceMs);
        setReceiveTimeout(place.connection.get(), kPatienceSeconds);
        epoll_event interest{.events = EPOLLIN, .data = {.ptr = &place}};
        if (::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, place.connection.get(), &interest) != 0) {
            throwErrno("epoll_ctl");
        }
    }
}

void Listeners::drain(std::uint64_t bytes) {
    for (auto& place : places_) place.missing = bytes;
    unfinished_ = places_.size();
    while (unfinished_ > 0) {
        epoll_event ready[64];
        const int count = ::epoll_wait(epoll_.get(), ready, std::ssize(ready), kPatienceMs);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throwErrno("epoll_wait");
        if (count == 0) throw std::runtime_error("deliveries stopped coming");
        for (int i = 0; i < count; ++i) readOnce(*static_cast<Place*>(ready[i].data.ptr));
    }
}

void Listeners::readOnce(Place& place) {
    // More than was asked for would belong to the next measurement.
    if (place.missing == 0) throw std::runtime_error("more was delivered than was raised");
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(place.missing, kReadBytes));
    const ssize_t count = ::recv(place.connection.get(), buffer_.data(), size, 0);
    if (count < 0 && errno == EINTR) return;
    if (count < 0) throwErrno("recv");
    if (count == 0) throw std::runtime_error("a delivery connection was closed");
    place.missing -= static_cast<std::uint64_t>(count);
    if (place.missing == 0) --unfinished_;
}

}  // namespace RuvoBench
