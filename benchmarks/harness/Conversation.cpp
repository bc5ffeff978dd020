#include "benchmarks/harness/Conversation.h"

#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Requests.h"
#include "runtime/net/WireCodec.h"

#include <stdexcept>
#include <string>

namespace RuvoBench {

Conversation::Conversation(std::uint16_t port) : socket_(connectToLoopback(port)) {
    sendAll(socket_.get(), kOpening);
    char signal[kAdmitted.size()];
    receiveExactly(socket_.get(), signal, sizeof signal);
    if (std::string_view(signal, sizeof signal) != kAdmitted) {
        throw std::runtime_error("the daemon did not admit the conversation");
    }
}

std::int32_t Conversation::ask(std::string_view request) {
    sendAll(socket_.get(), batchOf(request, 1));
    char answer[kResultBytes];
    receiveExactly(socket_.get(), answer, sizeof answer);
    return static_cast<std::int32_t>(VornNet::decode32(answer));
}

void Conversation::expect(std::string_view request, std::int32_t expected) {
    const std::int32_t result = ask(request);
    if (result != expected) {
        throw std::runtime_error("a request was answered " + std::to_string(result));
    }
}

}  // namespace RuvoBench
