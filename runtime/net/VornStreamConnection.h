#pragma once

#include "runtime/net/ByteBuffer.h"
#include "runtime/net/VornConnection.h"
#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"
#include "runtime/support/VornMutex.h"

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>

namespace VornNet {

// Typed reads and writes, lines and peeks over any channel that moves bytes in
// order: the derived class brings the channel, this one the two buffers and the
// rules. A quiet connection holds at most half a KiB of input; larger buffers
// come with the peer's traffic and go before the next wait.
//
// The destructor of every class that objects are made of begins with close(), so
// that abort() of another thread never reaches an object that is half gone.
class VORN_EXPORT VornStreamConnection : public VornConnection {
public:
    ~VornStreamConnection() override;

    void close() override;
    void write(const char* buffer, int length, int& count) override;
    void writeInt(int value) override;
    void writeInt2(int value) override;
    void writeInt3(int value) override;
    void writeString(const std::string& value) override;
    void readString(std::string& value) override;
    std::uint32_t readUnsigned() override;
    std::uint16_t readUnsignedShort() override;
    int readInt() override;
    void flush() override;
    bool peekLine(char* buffer, int& length, bool& closed) override;
    char* readLine(char* buffer, int capacity, bool& closed) override;
    void read(char* buffer, int length, int& count, bool all) override;
    bool peek(char* buffer, int& length, bool& closed) override;
    void setRawMode(bool raw) override;
    bool isLocalConnection() override;
    SocketHandle getSocket() override;
    bool hasBufferedInput() const override;
    bool isPeerGone() override;
    void abort() override;
    bool isAborted() const final { return aborted_.load(std::memory_order_acquire); }
    void setAbortEvent(VornSupport::VornEvent* event) override VORN_EXCLUDES(abortMutex_);

    // Bytes of memory that both buffers have at this moment.
    std::size_t bufferBytesForTest() const { return input_.capacity() + output_.capacity(); }

protected:
    // What a look at the channel found.
    enum class Arrival { Bytes, NothingYet, End, Broken };
    struct Received {
        Arrival arrival = Arrival::End;
        std::size_t count = 0;        // of Bytes, at least 1
        VornPlatform::OsError error;  // of Broken
    };

    // Receives up to `size` bytes; with `wait` false NothingYet rather than
    // waiting. Ends at once when the channel is broken by breakChannel().
    virtual Received receiveSome(char* buffer, std::size_t size, bool wait) = 0;
    // Sends both pieces, in order and wholly. Throws VornException.
    virtual void sendAll(std::string_view first, std::string_view second) = 0;
    // Ends what waits in the channel on other threads, and all that follows.
    // Any thread, also while closeChannel runs.
    virtual void breakChannel() = 0;
    // Sends `held` within bounded time and closes. `unread`: the peer's bytes
    // are still in our buffer. Called once; may throw.
    virtual void closeChannel(std::string_view held, bool unread) = 0;
    // Looks at the channel without taking anything from it: has the peer closed
    // or reset it, are bytes there that receiveSome() would get?
    enum class Look { Quiet, Bytes, Gone };
    virtual Look lookAtChannel() = 0;
    // Whether the peer may use the engines; asked once.
    virtual bool admitsPeer() = 0;

    // Whether isLocalConnection() has admitted the peer.
    bool isAdmitted() const { return local_ == Local::Yes; }
    [[noreturn]] void fail(const std::string& problem) const;
    [[noreturn]] void fail(const std::string& problem, VornPlatform::OsError error) const;

private:
    enum class Local : char { Unknown, No, Yes };
    struct Line;

    void checkOpen() const;
    void put(std::string_view bytes);
    void sendHeldAnd(std::string_view bytes);
    bool fill(bool wait);
    bool receiveBehind(bool wait);
    bool noteArrival(const Received& received);
    const char* need(std::size_t count);
    std::size_t takeBuffered(char* buffer, std::size_t size);
    std::size_t readPart(char* buffer, std::size_t size);
    void readAll(char* buffer, std::size_t size);
    [[noreturn]] void failAtEnd() const;
    Line findLine(std::size_t capacity);

    ByteBuffer input_;
    ByteBuffer output_;
    VornPlatform::OsError lost_;  // why the stream ended, when not by the peer's close
    std::atomic<bool> aborted_{false};
    VornSupport::VornMutex abortMutex_;
    VornSupport::VornEvent* abortEvent_ VORN_GUARDED_BY(abortMutex_) = nullptr;
    bool filledUp_ = false;  // the last receive left no room: more is likely there
    bool ended_ = false;     // nothing more will come
    bool broken_ = false;    // a send failed
    bool closed_ = false;
    bool raw_ = false;
    Local local_ = Local::Unknown;
};

}  // namespace VornNet
