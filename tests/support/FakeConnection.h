#pragma once

#include "runtime/net/VornConnection.h"
#include "runtime/support/VornMutex.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

// A connection in memory: what the peer "sends" is scripted beforehand or fed
// from another thread, what is written is kept in order and kind, and a failure
// can be set for any operation. Reading past the script fails as if the peer
// had gone, unless waitForMore() makes it wait. All functions may be called
// from any thread.
class FakeConnection : public VornNet::VornConnection {
public:
    // ---- the peer's side: each returns *this ----
    FakeConnection& sendString(std::string_view value);
    FakeConnection& sendInt(int value);
    FakeConnection& sendUnsigned(std::uint32_t value);
    FakeConnection& sendUnsignedShort(std::uint16_t value);
    FakeConnection& sendBytes(std::string_view bytes);  // raw; lines as well
    // Lets `count` more reads and writes succeed; every one after that fails.
    FakeConnection& failAfter(int count);
    // Lets `count` more writes succeed; reads go on.
    FakeConnection& failWritesAfter(int count);
    // A read past the script waits for more of it, or for abort() or close().
    FakeConnection& waitForMore();
    // Nothing more will come; ends a waiting read.
    void endOfInput();
    FakeConnection& setLocal(bool local);
    FakeConnection& setSocket(SocketHandle socket);

    // ---- what happened ----
    // One entry an operation that succeeded: "string raid", "int -2",
    // "int2 7", "int3 7", "bytes abc", "flush", "close", "abort".
    std::vector<std::string> written() const;
    // All that was written, in the encoding of the wire.
    std::string wire() const;
    // The kinds of the reads that succeeded: "string", "int", "bytes", ...
    std::vector<std::string> reads() const;
    std::size_t unread() const;
    bool isClosed() const;
    bool isRaw() const;
    int flushes() const;
    // True while a read waits for more.
    bool isWaiting() const;

    // ---- VornConnection ----
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
    bool isAborted() const override;
    void setAbortEvent(VornSupport::VornEvent* event) override;
    std::string getPeerName() const override { return "fake:1"; }

private:
    std::string_view restLocked() const VORN_REQUIRES(mutex_);
    bool awaitLocked(std::size_t bytes) VORN_REQUIRES(mutex_);
    void admitLocked(std::optional<int>& left) VORN_REQUIRES(mutex_);
    std::string take(const char* kind, std::size_t bytes) VORN_EXCLUDES(mutex_);
    void put(std::string entry, std::string_view bytes) VORN_EXCLUDES(mutex_);
    FakeConnection& send(std::string_view bytes) VORN_EXCLUDES(mutex_);

    mutable VornSupport::VornMutex mutex_;
    VornSupport::VornCondition changed_;
    std::string input_ VORN_GUARDED_BY(mutex_);
    std::size_t at_ VORN_GUARDED_BY(mutex_) = 0;
    std::string wire_ VORN_GUARDED_BY(mutex_);
    std::vector<std::string> written_ VORN_GUARDED_BY(mutex_);
    std::vector<std::string> reads_ VORN_GUARDED_BY(mutex_);
    std::optional<int> operationsLeft_ VORN_GUARDED_BY(mutex_);
    std::optional<int> writesLeft_ VORN_GUARDED_BY(mutex_);
    SocketHandle socket_ VORN_GUARDED_BY(mutex_) = -1;
    VornSupport::VornEvent* abortEvent_ VORN_GUARDED_BY(mutex_) = nullptr;
    int flushes_ VORN_GUARDED_BY(mutex_) = 0;
    bool waits_ VORN_GUARDED_BY(mutex_) = false;
    bool waiting_ VORN_GUARDED_BY(mutex_) = false;
    bool local_ VORN_GUARDED_BY(mutex_) = true;
    bool raw_ VORN_GUARDED_BY(mutex_) = false;
    bool closed_ VORN_GUARDED_BY(mutex_) = false;
    bool aborted_ VORN_GUARDED_BY(mutex_) = false;
};

}  // namespace TestSupport
