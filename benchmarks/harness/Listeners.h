#pragma once

#include "benchmarks/harness/Fd.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace RuvoBench {

// The places where deliveries arrive: `count` listening sockets, each with the
// one connection that a server opens to it. The daemon and the bare servers are
// read by this same code. One thread.
class Listeners {
public:
    explicit Listeners(std::size_t count);

    std::size_t size() const { return places_.size(); }
    std::string remoteName(std::size_t index) const;  // as a registration names it
    std::string ports() const;                        // "4711,4712": as a bare server takes them
    // Accepts the connection of each place; waits ten seconds at most for one.
    void acceptAll();
    int socket(std::size_t index) const { return places_[index].connection.get(); }
    // Returns when every connection has brought `bytes` more bytes.
    void drain(std::uint64_t bytes);

private:
    struct Place {
        std::uint16_t port = 0;
        Fd listener;
        Fd connection;
        std::uint64_t missing = 0;
    };
    void readOnce(Place& place);

    std::vector<Place> places_;
    Fd epoll_;
    std::size_t unfinished_ = 0;
    std::vector<char> buffer_;
};

}  // namespace RuvoBench
