#include "tests/support/FakeConnection.h"

#include "runtime/net/VornNetLimits.h"
#include "runtime/net/WireCodec.h"
#include "runtime/support/VornEvent.h"
#include "runtime/support/VornException.h"

#include <algorithm>
#include <cstring>

namespace TestSupport {

using VornSupport::VornException;
using VornSupport::VornMutexLock;

// ---- the peer's side -------------------------------------------------------------

FakeConnection& FakeConnection::send(std::string_view bytes) {
    VornMutexLock lock(mutex_);
    input_.append(bytes);
    changed_.notifyAll();
    return *this;
}

FakeConnection& FakeConnection::sendString(std::string_view value) {
    std::string bytes;
    VornNet::appendString(bytes, value);
    return send(bytes);
}

FakeConnection& FakeConnection::sendInt(int value) {
    std::string bytes;
    VornNet::appendInt(bytes, value);
    return send(bytes);
}

FakeConnection& FakeConnection::sendUnsigned(std::uint32_t value) {
    std::string bytes;
    VornNet::append32(bytes, value);
    return send(bytes);
}

FakeConnection& FakeConnection::sendUnsignedShort(std::uint16_t value) {
    std::string bytes;
    VornNet::append16(bytes, value);
    return send(bytes);
}

FakeConnection& FakeConnection::sendBytes(std::string_view bytes) { return send(bytes); }

FakeConnection& FakeConnection::failAfter(int count) {
    VornMutexLock lock(mutex_);
    operationsLeft_ = count;
    return *this;
}

FakeConnection& FakeConnection::failWritesAfter(int count) {
    VornMutexLock lock(mutex_);
    writesLeft_ = count;
    return *this;
}

FakeConnection& FakeConnection::waitForMore() {
    VornMutexLock lock(mutex_);
    waits_ = true;
    return *this;
}

void FakeConnection::endOfInput() {
    VornMutexLock lock(mutex_);
    waits_ = false;
    changed_.notifyAll();
}

FakeConnection& FakeConnection::setLocal(bool local) {
    VornMutexLock lock(mutex_);
    local_ = local;
    return *this;
}

FakeConnection& FakeConnection::setSocket(SocketHandle socket) {
    VornMutexLock lock(mutex_);
    socket_ = socket;
    return *this;
}

// ---- what happened ---------------------------------------------------------------

std::vector<std::string> FakeConnection::written() const {
    VornMutexLock lock(mutex_);
    return written_;
}

std::string FakeConnection::wire() const {
    VornMutexLock lock(mutex_);
    return wire_;
}

std::vector<std::string> FakeConnection::reads() const {
    VornMutexLock lock(mutex_);
    return reads_;
}

std::size_t FakeConnection::unread() const {
    VornMutexLock lock(mutex_);
    return restLocked().size();
}

bool FakeConnection::isClosed() const {
    VornMutexLock lock(mutex_);
    return closed_;
}

bool FakeConnection::isAborted() const {
    VornMutexLock lock(mutex_);
    return aborted_;
}

bool FakeConnection::isRaw() const {
    VornMutexLock lock(mutex_);
    return raw_;
}

int FakeConnection::flushes() const {
    VornMutexLock lock(mutex_);
    return flushes_;
}

bool FakeConnection::isWaiting() const {
    VornMutexLock lock(mutex_);
    return waiting_;
}

// ---- reading ---------------------------------------------------------------------

std::string_view FakeConnection::restLocked() const {
    return std::string_view(input_).substr(at_);
}

// Waits until `bytes` more bytes are there; false when they will not come.
bool FakeConnection::awaitLocked(std::size_t bytes) {
    waiting_ = true;
    while (restLocked().size() < bytes && waits_ && !aborted_ && !closed_) changed_.wait(mutex_);
    waiting_ = false;
    return restLocked().size() >= bytes && !aborted_ && !closed_;
}

void FakeConnection::admitLocked(std::optional<int>& left) {
    if (closed_) throw VornException("FakeConnection: closed");
    if (aborted_) throw VornException("FakeConnection: aborted");
    if (left && *left <= 0) throw VornException("FakeConnection: set to fail", 10054);
    if (left) --*left;
}

std::string FakeConnection::take(const char* kind, std::size_t bytes) {
    VornMutexLock lock(mutex_);
    admitLocked(operationsLeft_);
    if (!awaitLocked(bytes)) throw VornException("FakeConnection: the peer has gone");
    std::string taken(restLocked().substr(0, bytes));
    at_ += bytes;
    if (*kind != '\0') reads_.emplace_back(kind);
    return taken;
}

void FakeConnection::readString(std::string& value) {
    const std::uint32_t length = VornNet::decode32(take("", 4).data());
    if (length > VornNet::VornNetLimits::getInstance().stringBytes) {
        throw VornException("FakeConnection: a string over the limit");
    }
    {
        VornMutexLock lock(mutex_);
        if (operationsLeft_) ++*operationsLeft_;  // both parts are one operation
    }
    value = take("string", length);
}

std::uint32_t FakeConnection::readUnsigned() {
    return VornNet::decode32(take("unsigned", 4).data());
}

std::uint16_t FakeConnection::readUnsignedShort() {
    return VornNet::decode16(take("unsigned short", 2).data());
}

int FakeConnection::readInt() { return static_cast<int>(VornNet::decode32(take("int", 4).data())); }

void FakeConnection::read(char* buffer, int length, int& count, bool all) {
    std::size_t wanted = static_cast<std::size_t>(length);
    if (!all) {
        VornMutexLock lock(mutex_);
        awaitLocked(1);
        wanted = std::min(wanted, std::max<std::size_t>(restLocked().size(), 1));
    }
    const std::string bytes = take("bytes", wanted);
    std::memcpy(buffer, bytes.data(), bytes.size());
    count = static_cast<int>(bytes.size());
}

bool FakeConnection::peek(char* buffer, int& length, bool& closed) {
    VornMutexLock lock(mutex_);
    const std::string_view rest = restLocked();
    const std::size_t count = std::min(rest.size(), static_cast<std::size_t>(length));
    closed = rest.empty() && (!waits_ || aborted_ || closed_);
    if (count == 0) return false;
    std::memcpy(buffer, rest.data(), count);
    length = static_cast<int>(count);
    return true;
}

bool FakeConnection::peekLine(char* buffer, int& length, bool& closed) {
    VornMutexLock lock(mutex_);
    const auto room = static_cast<std::size_t>(length) - 1;
    std::size_t want = 1;
    while (awaitLocked(want) && want < room &&
           restLocked().substr(0, want).find('\n') == std::string_view::npos) {
        ++want;
    }
    const std::string_view rest = restLocked().substr(0, room + 1);
    const std::size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, std::min(end, room));
    if (end != std::string_view::npos && !line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    std::memcpy(buffer, line.data(), line.size());
    buffer[line.size()] = '\0';
    length = static_cast<int>(line.size());
    closed = end == std::string_view::npos && !waits_;
    return end != std::string_view::npos;
}

char* FakeConnection::readLine(char* buffer, int capacity, bool& closed) {
    std::string line;
    closed = false;
    while (static_cast<int>(line.size()) < capacity - 1) {
        {
            VornMutexLock lock(mutex_);
            closed = !awaitLocked(1);
        }
        if (closed) break;
        const char c = take("", 1)[0];
        if (c == '\n') {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            break;
        }
        line.push_back(c);
    }
    std::memcpy(buffer, line.c_str(), line.size() + 1);
    VornMutexLock lock(mutex_);
    reads_.emplace_back("line");
    return buffer;
}

// ---- writing ---------------------------------------------------------------------

void FakeConnection::put(std::string entry, std::string_view bytes) {
    VornMutexLock lock(mutex_);
    admitLocked(operationsLeft_);
    admitLocked(writesLeft_);
    written_.push_back(std::move(entry));
    wire_.append(bytes);
}

void FakeConnection::write(const char* buffer, int length, int& count) {
    const std::string_view bytes(buffer, static_cast<std::size_t>(length));
    put("bytes " + std::string(bytes), bytes);
    count = length;
}

void FakeConnection::writeInt(int value) {
    std::string bytes;
    VornNet::appendInt(bytes, value);
    put("int " + std::to_string(value), bytes);
}

void FakeConnection::writeInt2(int value) {
    std::string bytes;
    VornNet::appendInt(bytes, value);
    put("int2 " + std::to_string(value), bytes);
}

void FakeConnection::writeInt3(int value) {
    std::string bytes;
    VornNet::appendInt(bytes, value);
    put("int3 " + std::to_string(value), bytes);
}

void FakeConnection::writeString(const std::string& value) {
    std::string bytes;
    VornNet::appendString(bytes, value);
    put("string " + value, bytes);
}

void FakeConnection::flush() {
    put("flush", "");
    VornMutexLock lock(mutex_);
    ++flushes_;
}

// ---- the rest --------------------------------------------------------------------

void FakeConnection::close() {
    VornMutexLock lock(mutex_);
    if (!closed_) written_.emplace_back("close");
    closed_ = true;
    changed_.notifyAll();
}

void FakeConnection::abort() {
    VornMutexLock lock(mutex_);
    if (!aborted_) written_.emplace_back("abort");
    aborted_ = true;
    changed_.notifyAll();
    if (abortEvent_ != nullptr) abortEvent_->set();
}

void FakeConnection::setAbortEvent(VornSupport::VornEvent* event) {
    VornMutexLock lock(mutex_);
    abortEvent_ = event;
    if (event != nullptr && aborted_) event->set();
}

void FakeConnection::setRawMode(bool raw) {
    VornMutexLock lock(mutex_);
    raw_ = raw;
}

bool FakeConnection::isLocalConnection() {
    VornMutexLock lock(mutex_);
    return local_;
}

FakeConnection::SocketHandle FakeConnection::getSocket() {
    VornMutexLock lock(mutex_);
    return socket_;
}

bool FakeConnection::hasBufferedInput() const { return unread() > 0; }

bool FakeConnection::isPeerGone() {
    VornMutexLock lock(mutex_);
    return closed_ || aborted_ || (restLocked().empty() && !waits_);
}

}  // namespace TestSupport
