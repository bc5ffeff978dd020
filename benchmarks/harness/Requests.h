#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace RuvoBench {

// The bytes of engine conversations, built once before anything is timed.

inline constexpr std::string_view kOpening = "RUVO\n";
inline constexpr std::string_view kAdmitted = "+\r\n";
inline constexpr std::size_t kResultBytes = 4;  // of every request here

// One request each: its code, the engine's name, the command and its arguments.
std::string createJobRequest(std::string_view description, std::string_view name);
std::string getProgressRequest(std::int32_t job);
std::string registerRequest(std::string_view signature, std::string_view remoteName,
                            std::int32_t handle);

std::string lockRequest(std::string_view path, std::int32_t waitMs);
std::string unlockRequest(std::int32_t handle);

struct Event {
    std::string sender = "udp:127.0.0.1";
    std::string name;
    std::string message = "changed";
    std::string data = {};
};
std::string notifyRequest(const Event& event);
// What each listener is sent for it, the registration's handle included.
std::size_t deliveryBytes(const Event& event);

// Requests travel in batches, behind their number.
std::string batchOf(std::string_view request, std::uint16_t times);
// Of requests that follow each other already.
std::string batchHeader(std::uint16_t requests);

}  // namespace RuvoBench
