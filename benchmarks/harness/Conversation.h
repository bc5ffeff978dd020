#pragma once

#include "benchmarks/harness/Fd.h"

#include <cstdint>
#include <string_view>

namespace RuvoBench {

// An open engine conversation over one blocking socket. One thread.
class Conversation {
public:
    // Connects, sends the opening line and waits to be admitted.
    explicit Conversation(std::uint16_t port);

    int socket() const { return socket_.get(); }
    // Sends one request by itself and returns its result.
    std::int32_t ask(std::string_view request);
    // As ask(), and throws unless the result is `expected`.
    void expect(std::string_view request, std::int32_t expected);

private:
    Fd socket_;
};

}  // namespace RuvoBench
