#include "benchmarks/harness/Requests.h"

#include "runtime/net/WireCodec.h"

namespace RuvoBench {
namespace {

using VornNet::append16;
using VornNet::appendInt;
using VornNet::appendString;

constexpr std::uint16_t kEngineRequest = 7777;

std::string requestTo(std::string_view engine, std::string_view command) {
    std::string bytes;
    append16(bytes, kEngineRequest);
    appendString(bytes, engine);
    appendString(bytes, command);
    return bytes;
}

}  // namespace

std::string createJobRequest(std::string_view description, std::string_view name) {
    std::string bytes = requestTo("JobStatus", "RUVO_JS_CREATE");
    appendString(bytes, description);
    appendString(bytes, name);
    return bytes;
}

std::string getProgressRequest(std::int32_t job) {
    std::string bytes = requestTo("JobStatus", "RUVO_JS_GET_PROGRESS");
    appendInt(bytes, job);
    return bytes;
}

std::string registerRequest(std::string_view signature, std::string_view remoteName,
                            std::int32_t handle) {
    std::string bytes = requestTo("Notifier", "RUVO_NN_REGISTER");
    appendString(bytes, signature);
    appendString(bytes, remoteName);
    appendInt(bytes, handle);
    return bytes;
}

std::string lockRequest(std::string_view path, std::int32_t waitMs) {
    std::string bytes = requestTo("Arbiter", "RUVO_RA_LOCK");
    appendString(bytes, path);
    appendInt(bytes, waitMs);
    return bytes;
}

std::string unlockRequest(std::int32_t handle) {
    std::string bytes = requestTo("Arbiter", "RUVO_RA_UNLOCK");
    appendInt(bytes, handle);
    return bytes;
}

std::string notifyRequest(const Event& event) {
    std::string bytes = requestTo("Notifier", "RUVO_NN_NOTIFY");
    appendString(bytes, event.sender);
    appendString(bytes, event.name);
    appendString(bytes, event.message);
    appendString(bytes, event.data);  // its size and its bytes travel as a string does
    return bytes;
}

std::size_t deliveryBytes(const Event& event) {
    constexpr std::size_t kCounts = 4 * sizeof(std::uint32_t);
    constexpr std::size_t kHandle = sizeof(std::uint32_t);
    return kHandle + kCounts + event.sender.size() + event.name.size() + event.message.size() +
           event.data.size();
}

std::string batchHeader(std::uint16_t requests) {
    std::string bytes;
    append16(bytes, requests);
    return bytes;
}

std::string batchOf(std::string_view request, std::uint16_t times) {
    std::string bytes = batchHeader(times);
    bytes.reserve(bytes.size() + request.size() * times);
    for (std::uint16_t i = 0; i < times; ++i) bytes += request;
    return bytes;
}

}  // namespace RuvoBench
