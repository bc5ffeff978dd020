#include "client/RuvoRequest.h"

#include "client/RuvoClientError.h"
#include "runtime/net/WireCodec.h"

#include <limits>

namespace Ruvo {
namespace {

constexpr std::uint16_t kAcknowledgement = 0;
constexpr std::uint16_t kLogOff = 4;
constexpr std::uint16_t kEngineRequest = 7777;
constexpr std::uint16_t kStopDaemon = 9999;

}  // namespace

RuvoRequest::RuvoRequest(std::uint16_t code) { VornNet::append16(bytes_, code); }

RuvoRequest::RuvoRequest(std::string_view monitor, std::string_view command, Answer answer)
    : RuvoRequest(kEngineRequest) {
    answer_ = answer;
    addString(monitor);
    addString(command);
    headSize_ = bytes_.size();
}

RuvoRequest RuvoRequest::acknowledgement() { return RuvoRequest(kAcknowledgement); }

RuvoRequest RuvoRequest::logOff() { return RuvoRequest(kLogOff); }

RuvoRequest RuvoRequest::stopDaemon() { return RuvoRequest(kStopDaemon); }

RuvoRequest& RuvoRequest::addInt(std::int32_t value) {
    VornNet::appendInt(bytes_, value);
    return *this;
}

RuvoRequest& RuvoRequest::addUnsigned(std::uint32_t value) {
    VornNet::append32(bytes_, value);
    return *this;
}

RuvoRequest& RuvoRequest::addString(std::string_view text) {
    if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw RuvoClientError(RuvoProblem::Argument, "a text has fewer than 4 GiB");
    }
    VornNet::appendString(bytes_, text);
    return *this;
}

RuvoRequest& RuvoRequest::addBytes(std::string_view bytes) {
    bytes_.append(bytes);
    return *this;
}

}  // namespace Ruvo
