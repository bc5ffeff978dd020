#pragma once

#include "client/ruvo_client.h"

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Ruvo {

enum class RuvoProblem {
    TimedOut = RUVO_TIMED_OUT,
    Declined = RUVO_DECLINED,
    Unreachable = RUVO_UNREACHABLE,
    AccessRefused = RUVO_ACCESS_REFUSED,
    Closed = RUVO_CLOSED,
    Protocol = RUVO_PROTOCOL,
    Argument = RUVO_ARGUMENT,
    Internal = RUVO_INTERNAL
};

// What the client library throws. The message is for a human and complete.
class RUVO_API RuvoClientError : public std::runtime_error {
public:
    RuvoClientError(RuvoProblem problem, const std::string& message, std::int32_t code = 0);
    RuvoClientError(const RuvoClientError&) = default;
    RuvoClientError& operator=(const RuvoClientError&) = default;
    ~RuvoClientError() override;

    RuvoProblem problem() const { return problem_; }
    // Declined: the daemon's answer. Unreachable: the system's error number.
    std::int32_t code() const { return code_; }

private:
    RuvoProblem problem_;
    std::int32_t code_;
};

}  // namespace Ruvo
