#pragma once

#include "runtime/net/VornConnection.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornSmartPointer.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace VornNet {

// The connection on which a proxy writes the content of one delivery: it
// appends to a text in memory. A large part at the end that is shared is only
// pointed to. Nothing can be read from it. One thread.
class VORN_EXPORT VornContentConnection final : public VornConnection {
public:
    using Owner = VornSupport::VornSmartPointer<VornSupport::VornObjectBase>;

    // Content after `limit` bytes of `out` throws VornException, and hasFailed()
    // stays true, so that a writer that swallows exceptions is found out.
    // Shared parts of `shareFrom` bytes or more are not copied.
    VornContentConnection(std::string& out, std::size_t limit, std::size_t shareFrom)
        : out_(out), limit_(limit), shareFrom_(shareFrom) {}

    bool hasFailed() const { return failed_; }
    // What follows `out` in the delivery: empty, or bytes that sharedOwner() keeps.
    std::string_view shared() const { return shared_; }
    const Owner& sharedOwner() const { return sharedOwner_; }

    void close() override {}
    void write(const char* buffer, int length, int& count) override;
    void writeInt(int value) override;
    void writeInt2(int value) override { writeInt(value); }
    void writeInt3(int value) override { writeInt(value); }
    void writeString(const std::string& value) override;
    void writeShared(VornSupport::VornObjectBase& owner, std::string_view bytes) override;
    void readString(std::string& value) override;
    std::uint32_t readUnsigned() override;
    std::uint16_t readUnsignedShort() override;
    int readInt() override;
    void flush() override {}
    bool peekLine(char* buffer, int& length, bool& closed) override;
    char* readLine(char* buffer, int capacity, bool& closed) override;
    void read(char* buffer, int length, int& count, bool all) override;
    bool peek(char* buffer, int& length, bool& closed) override;
    void setRawMode(bool) override {}
    bool isLocalConnection() override { return false; }
    SocketHandle getSocket() override { return -1; }
    bool hasBufferedInput() const override { return false; }
    bool isPeerGone() override { return false; }
    // By a writer that could not finish: nothing of it is delivered.
    void abort() override { failed_ = true; }
    bool isAborted() const override { return failed_; }
    std::string getPeerName() const override { return "delivery"; }

private:
    void makeRoom(std::size_t bytes);
    [[noreturn]] static void refuseRead();

    std::string& out_;
    const std::size_t limit_;
    const std::size_t shareFrom_;
    Owner sharedOwner_;
    std::string_view shared_;
    bool failed_ = false;
};

}  // namespace VornNet
