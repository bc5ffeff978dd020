#pragma once

#include "tests/runtime/net/ScriptedConnection.h"

#include <string>
#include <string_view>

namespace FuzzTests {

// A client of the daemon that sends what a text tells and then closes. Each line
// is one thing to send, its first character says what:
//
//   l TEXT     a line          h NUMBER   16 bits          i NUMBER   32 bits
//   s TEXT     a string        S SIZE TEXT  a string that claims to have that size
//   b TEXT     a byte block    B SIZE TEXT  a block that claims to have that size
//   r TEXT     raw bytes       k          the last 32 bits that were received
//
// Any other line is sent as it stands. What is sent comes a line at a time, when the
// daemon waits for it. A client that has to wait for a lock goes: nobody else could
// give the lock back. It never listens anywhere: names of listeners are changed as
// they are read, so that no connection leaves the process.
class TextPeer : public ScriptedConnection {
public:
    explicit TextPeer(std::string_view text) : rest_(text) { stalled = true; }
    ~TextPeer() override { close(); }

    void readString(std::string& value) override;
    void setAbortEvent(VornSupport::VornEvent* event) override;

protected:
    Received receiveSome(char* buffer, std::size_t size, bool wait) override;

private:
    std::string nextBytes();
    std::string bytesOf(char kind, std::string_view argument) const;

    std::string_view rest_;
};

}  // namespace FuzzTests
