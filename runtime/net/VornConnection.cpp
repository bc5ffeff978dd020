#include "runtime/net/VornConnection.h"

#include "runtime/net/VornIPCServer.h"
#include "runtime/net/VornNetLimits.h"
#include "runtime/support/VornException.h"

#include <algorithm>

namespace VornNet {
namespace {

using VornSupport::VornException;

constexpr std::size_t kGrowth = std::size_t{64} * 1024;
constexpr std::size_t kMostAtOnce = 1u << 30;

}  // namespace

VornConnection::~VornConnection() = default;

void VornConnection::writeShared(VornSupport::VornObjectBase&, std::string_view bytes) {
    while (!bytes.empty()) {
        int count = 0;
        write(bytes.data(), static_cast<int>(std::min(bytes.size(), kMostAtOnce)), count);
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void VornConnection::setAbortEvent(VornSupport::VornEvent*) {}

VornIPCServer::~VornIPCServer() = default;

VornNetLimits& VornNetLimits::getInstance() {
    static VornNetLimits instance;
    return instance;
}

std::string readBlock(VornConnection& connection, std::int64_t length, const char* what) {
    const std::int64_t limit = VornNetLimits::getInstance().blockBytes;
    if (length < 0 || length > limit) {
        throw VornException(std::string(what) + ": a block of " + std::to_string(length) +
                            " bytes is refused; \"ruvod.limits.block-bytes\" allows 0 to " +
                            std::to_string(limit));
    }
    std::string block;
    while (block.size() < static_cast<std::size_t>(length)) {
        const std::size_t have = block.size();
        const std::size_t part = std::min(static_cast<std::size_t>(length) - have, kGrowth);
        block.resize(have + part);
        int count = 0;
        connection.read(block.data() + have, static_cast<int>(part), count, true);
    }
    return block;
}

}  // namespace VornNet
