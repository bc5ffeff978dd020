#pragma once

#include "tests/support/WireClient.h"

#include <cstdint>
#include <string_view>

namespace TestSupport {

// The arbiter's requests as they go over the wire. One request is a part of a
// batch, whose count stands before it.

inline WireText lockRequest(std::string_view path, std::int32_t waitMs) {
    return WireText().request("Arbiter", "RUVO_RA_LOCK").string(path).number(waitMs);
}
inline WireText unlockRequest(std::int32_t handle) {
    return WireText().request("Arbiter", "RUVO_RA_UNLOCK").number(handle);
}
inline WireText batchOf(const WireText& request) {
    return WireText().shortNumber(1).bytes(request.text());
}

inline std::int32_t lockOver(WireClient& client, std::string_view path, std::int32_t waitMs = 0) {
    client.send(batchOf(lockRequest(path, waitMs)));
    return client.readNumber();
}
inline std::int32_t unlockOver(WireClient& client, std::int32_t handle) {
    client.send(batchOf(unlockRequest(handle)));
    return client.readNumber();
}

}  // namespace TestSupport
