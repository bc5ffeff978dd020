#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornObjectBase.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace VornSupport {
class VornEvent;
}

namespace VornNet {

// One connected client channel. Reading, writing and flush() belong to the one
// thread that serves the connection; abort() may be called from any thread.
// What is written is held until flush(), until 16 KiB are held, or until a read
// would have to wait for the peer, so that one answer costs one system call.
//
// Every operation that fails throws VornSupport::VornException: the peer has
// gone, the channel was closed, a declared size is over its limit
// (VornNetLimits). Nothing near a declared size is allocated before the bytes
// arrive. Integers travel big-endian, strings as an unsigned 32-bit byte count
// and the bytes (WireCodec.h).
class VORN_EXPORT VornConnection : public virtual VornSupport::VornObjectBase {
public:
    using SocketHandle = std::intptr_t;  // descriptor or SOCKET; -1: none

    ~VornConnection() override;

    // Sends what is held, as far as the peer takes it, and closes the channel.
    // Never throws; repeated calls do nothing.
    virtual void close() = 0;
    // Writes `length` raw bytes; `count` becomes the number taken (all of them).
    virtual void write(const char* buffer, int length, int& count) = 0;
    virtual void writeInt(int value) = 0;
    virtual void writeInt2(int value) = 0;  // on the wire as writeInt
    virtual void writeInt3(int value) = 0;  // on the wire as writeInt
    virtual void writeString(const std::string& value) = 0;
    // Writes raw bytes that stay as they are for as long as `owner` is held (by a
    // VornSmartPointer), so that a channel that sends them later need not copy
    // them.
    virtual void writeShared(VornSupport::VornObjectBase& owner, std::string_view bytes);
    // Replaces `value`. At most "ruvod.limits.string-bytes" bytes.
    virtual void readString(std::string& value) = 0;
    virtual std::uint32_t readUnsigned() = 0;
    virtual std::uint16_t readUnsignedShort() = 0;
    virtual int readInt() = 0;
    // Sends everything held; returns when the system has taken it.
    virtual void flush() = 0;
    // Waits until a whole line, `length` bytes without a line end, or the end
    // of the stream is there; copies it (terminated, without its line end)
    // without consuming it. `length` is the buffer's size going in and the
    // line's length coming out. True when a whole line was seen; `closed` when
    // the peer has gone.
    virtual bool peekLine(char* buffer, int& length, bool& closed) = 0;
    // Consumes one line up to "\n" into the buffer, without the "\n" and a "\r"
    // before it, terminated by a zero byte, and returns the buffer. Of a line
    // longer than `capacity` - 1 bytes the rest stays to be read. At the end of
    // the stream what came is returned and `closed` is set.
    virtual char* readLine(char* buffer, int capacity, bool& closed) = 0;
    // Reads raw bytes; with `all` exactly `length` of them, else what is there,
    // at least one. `count` is the number read.
    virtual void read(char* buffer, int length, int& count, bool all) = 0;
    // Without waiting and without consuming: true when bytes are there, of
    // which up to `length` are copied and `length` becomes their number. False
    // when none are; then `closed` says whether any can still come.
    virtual bool peek(char* buffer, int& length, bool& closed) = 0;
    // Raw mode (on) is for lines and relayed bytes: a write goes out at once.
    // Off, the typed conversation gathers writes as described above.
    virtual void setRawMode(bool raw) = 0;
    // True when the peer may use the engines: a local client whose owner is
    // admitted (VornLocalAccess). Asks the system; remembered afterwards.
    virtual bool isLocalConnection() = 0;
    // The socket of a TCP connection, -1 for other kinds. Borrowed.
    virtual SocketHandle getSocket() = 0;

    // True when bytes that the peer sent are waiting inside this object, so
    // that a read can go on without the system.
    virtual bool hasBufferedInput() const = 0;
    // Looks whether the peer has closed or reset the channel. Does not wait and
    // consumes nothing: what stands before the end is kept to be read, as much as
    // "ruvod.limits.block-bytes" allows; an end behind more may stay unseen.
    virtual bool isPeerGone() = 0;
    // Breaks the channel from another thread: what is under way in read or
    // write fails with VornException, and so does everything after it.
    virtual void abort() = 0;
    // Whether abort() has been called. Any thread.
    virtual bool isAborted() const = 0;
    // For a wait on something else than the channel: from now on abort() sets the
    // event, at once when the channel is broken already; null: no more. On return
    // no abort() is at the event that was set before. Borrowed. A channel that
    // nobody can abort need not do anything.
    virtual void setAbortEvent(VornSupport::VornEvent* event);
    // "tcp:127.0.0.1:4711": who is at the other end, for the log.
    virtual std::string getPeerName() const = 0;
};

// Reads a block of `length` bytes whose size the peer declared, growing as the
// bytes arrive. Throws VornException when `length` is negative or more than
// "ruvod.limits.block-bytes"; `what` names the block in the message.
VORN_EXPORT std::string readBlock(VornConnection& connection, std::int64_t length,
                                  const char* what);

}  // namespace VornNet
