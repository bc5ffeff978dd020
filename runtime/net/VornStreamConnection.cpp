#include "runtime/net/VornStreamConnection.h"

#include "runtime/net/VornIPCServer.h"
#include "runtime/net/VornNetLimits.h"
#include "runtime/net/WireCodec.h"
#include "runtime/support/VornEvent.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace VornNet {
namespace {

using VornSupport::VornException;

constexpr std::size_t kSmall = 512;                      // what a quiet connection may keep
constexpr std::size_t kLarge = std::size_t{16} * 1024;   // what traffic makes of it
constexpr std::size_t kHold = std::size_t{16} * 1024;    // written bytes that are held at most
constexpr std::size_t kReadAhead = std::size_t{1024} * 1024;  // at least, to find the end
constexpr std::size_t kGrowth = std::size_t{64} * 1024;  // steps in which a string grows

}  // namespace

VornStreamConnection::~VornStreamConnection() = default;

// ---- state -------------------------------------------------------------------

void VornStreamConnection::fail(const std::string& problem) const {
    throw VornException(getPeerName() + ": " + problem);
}

void VornStreamConnection::fail(const std::string& problem, VornPlatform::OsError error) const {
    throw VornException(getPeerName() + ": " + problem, error);
}

void VornStreamConnection::failAtEnd() const {
    if (lost_) fail("the connection was lost", lost_);
    fail("the peer has closed the connection");
}

void VornStreamConnection::checkOpen() const {
    if (isAborted()) fail("the connection was aborted");
    if (closed_) fail("the connection is closed");
    if (broken_) fail("the connection is broken");
}

void VornStreamConnection::close() {
    if (closed_) return;
    closed_ = true;
    try {
        const bool sends = !broken_ && !isAborted();
        closeChannel(sends ? output_.view() : std::string_view(), !input_.empty());
    } catch (const std::exception& e) {
        VORN_LOG(5, "VornStreamConnection::close: " << e.what());
    }
    VornAcceptedConnections::getInstance().remove(*this);
    input_.release();
    output_.release();
}

void VornStreamConnection::abort() {
    aborted_.store(true, std::memory_order_release);
    breakChannel();
    VornSupport::VornMutexLock lock(abortMutex_);
    if (abortEvent_ != nullptr) abortEvent_->set();
}

void VornStreamConnection::setAbortEvent(VornSupport::VornEvent* event) {
    VornSupport::VornMutexLock lock(abortMutex_);
    abortEvent_ = event;
    if (event != nullptr && isAborted()) event->set();
}

// The peer's end stands behind what it has sent, and may not even have arrived
// while that fills the system's buffer; hence it is taken in. Not more than a peer
// can have us hold anyway, and a quarter for the buffer to move in: who looks after
// every few bytes that were read must not move all of them each time.
bool VornStreamConnection::isPeerGone() {
    const std::size_t most =
        std::max<std::size_t>(VornNetLimits::getInstance().blockBytes, kReadAhead);
    while (!closed_ && !broken_ && !ended_ && !isAborted()) {
        const Look found = lookAtChannel();
        if (found == Look::Gone) break;
        if (found == Look::Quiet || input_.size() >= most) return false;
        try {
            if (input_.roomSize() == 0) {
                input_.reserve(
                    std::min(std::max(kLarge, input_.capacity() * 2), most + most / 4));
            }
            if (!fill(false) && !ended_) return false;
        } catch (const VornException&) {
            break;  // aborted meanwhile
        } catch (const std::bad_alloc&) {
            return false;
        }
    }
    return true;
}

bool VornStreamConnection::hasBufferedInput() const { return !input_.empty(); }

bool VornStreamConnection::isLocalConnection() {
    checkOpen();
    if (local_ == Local::Unknown) local_ = admitsPeer() ? Local::Yes : Local::No;
    return local_ == Local::Yes;
}

VornConnection::SocketHandle VornStreamConnection::getSocket() { return -1; }

void VornStreamConnection::setRawMode(bool raw) {
    raw_ = raw;
    if (raw) flush();
}

// ---- writing -----------------------------------------------------------------

void VornStreamConnection::put(std::string_view bytes) {
    checkOpen();
    if (raw_ || output_.size() + bytes.size() >= kHold) {
        sendHeldAnd(bytes);
    } else {
        output_.append(bytes);
    }
}

void VornStreamConnection::sendHeldAnd(std::string_view bytes) {
    if (output_.empty() && bytes.empty()) return;
    try {
        sendAll(output_.view(), bytes);
    } catch (...) {
        broken_ = true;
        output_.release();
        throw;
    }
    output_.consume(output_.size());
    if (output_.capacity() > kSmall) output_.release();
}

void VornStreamConnection::flush() {
    checkOpen();
    sendHeldAnd({});
}

void VornStreamConnection::write(const char* buffer, int length, int& count) {
    count = 0;
    if (length < 0) fail("a write of " + std::to_string(length) + " bytes");
    put({buffer, static_cast<std::size_t>(length)});
    count = length;
}

void VornStreamConnection::writeInt(int value) {
    char bytes[4];
    encode32(static_cast<std::uint32_t>(value), bytes);
    put({bytes, sizeof bytes});
}

void VornStreamConnection::writeInt2(int value) { writeInt(value); }
void VornStreamConnection::writeInt3(int value) { writeInt(value); }

void VornStreamConnection::writeString(const std::string& value) {
    if (value.size() > std::numeric_limits<std::uint32_t>::max()) {
        fail("a string of " + std::to_string(value.size()) + " bytes cannot be sent");
    }
    checkOpen();
    char count[4];
    encode32(static_cast<std::uint32_t>(value.size()), count);
    output_.append({count, sizeof count});  // held, so that both go out together
    put(value);
}

// ---- the input buffer --------------------------------------------------------

bool VornStreamConnection::noteArrival(const Received& received) {
    if (isAborted()) fail("the connection was aborted");
    if (received.arrival == Arrival::Bytes) return true;
    if (received.arrival == Arrival::NothingYet) return false;
    ended_ = true;
    if (received.arrival == Arrival::Broken) lost_ = received.error;
    return false;
}

// Receives once into the free space of the buffer.
bool VornStreamConnection::receiveBehind(bool wait) {
    char* const room = input_.room();
    const std::size_t size = input_.roomSize();
    const Received received = receiveSome(room, size, wait);
    if (!noteArrival(received)) return false;
    input_.grew(received.count);
    filledUp_ = received.count == size;
    return true;
}

// Receives once. False when nothing came: the stream has ended (ended_), or
// nothing is there and `wait` is false.
bool VornStreamConnection::fill(bool wait) {
    if (ended_) return false;
    if (wait) sendHeldAnd({});  // the peer may be waiting for it
    if (wait && input_.empty() && input_.capacity() > kSmall) {
        if (filledUp_ && (receiveBehind(false) || ended_)) return !ended_;
        filledUp_ = false;
        input_.release();
    }
    if (input_.roomSize() == 0) {
        input_.reserve(input_.capacity() == 0 ? kSmall : std::max(kLarge, input_.capacity() * 2));
    } else if (filledUp_) {
        input_.reserve(kLarge);
    }
    return receiveBehind(wait);
}

// The next `count` bytes, few of them; they stay in the buffer.
const char* VornStreamConnection::need(std::size_t count) {
    checkOpen();
    while (input_.size() < count) {
        if (!fill(true)) failAtEnd();
    }
    return input_.data();
}

std::size_t VornStreamConnection::takeBuffered(char* buffer, std::size_t size) {
    const std::size_t count = std::min(size, input_.size());
    if (count != 0) std::memcpy(buffer, input_.data(), count);
    input_.consume(count);
    return count;
}

// At least one byte; 0 at the end of the stream. What is large goes straight to
// the caller's memory.
std::size_t VornStreamConnection::readPart(char* buffer, std::size_t size) {
    if (input_.empty() && size >= kSmall && !ended_) {
        sendHeldAnd({});
        if (input_.capacity() > kSmall) input_.release();
        filledUp_ = false;
        const Received received = receiveSome(buffer, size, true);
        return noteArrival(received) ? received.count : 0;
    }
    if (input_.empty() && !fill(true)) return 0;
    return takeBuffered(buffer, size);
}

void VornStreamConnection::readAll(char* buffer, std::size_t size) {
    for (std::size_t have = 0; have < size;) {
        const std::size_t count = readPart(buffer + have, size - have);
        if (count == 0) failAtEnd();
        have += count;
    }
}

// ---- typed reading -----------------------------------------------------------

std::uint32_t VornStreamConnection::readUnsigned() {
    const std::uint32_t value = decode32(need(4));
    input_.consume(4);
    return value;
}

std::uint16_t VornStreamConnection::readUnsignedShort() {
    const std::uint16_t value = decode16(need(2));
    input_.consume(2);
    return value;
}

int VornStreamConnection::readInt() { return static_cast<int>(readUnsigned()); }

void VornStreamConnection::readString(std::string& value) {
    value.clear();
    const std::uint32_t length = readUnsigned();
    const std::uint32_t limit = VornNetLimits::getInstance().stringBytes;
    if (length > limit) {
        fail("a string of " + std::to_string(length) +
             " bytes is refused; \"ruvod.limits.string-bytes\" allows " + std::to_string(limit));
    }
    while (value.size() < length) {
        const std::size_t have = value.size();
        const std::size_t part = std::min<std::size_t>(length - have, kGrowth);
        value.resize(have + part);
        readAll(value.data() + have, part);
    }
}

void VornStreamConnection::read(char* buffer, int length, int& count, bool all) {
    count = 0;
    checkOpen();
    if (length < 0) fail("a read of " + std::to_string(length) + " bytes");
    const auto wanted = static_cast<std::size_t>(length);
    for (std::size_t have = 0; have < wanted;) {
        const std::size_t part = readPart(buffer + have, wanted - have);
        if (part == 0) failAtEnd();
        have += part;
        count = static_cast<int>(have);
        if (!all) return;
    }
}

}  // namespace VornNet
