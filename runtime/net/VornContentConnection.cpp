#include "runtime/net/VornContentConnection.h"

#include "runtime/net/WireCodec.h"
#include "runtime/support/VornException.h"

namespace VornNet {

using VornSupport::VornException;

void VornContentConnection::makeRoom(std::size_t bytes) {
    if (out_.size() + shared_.size() + bytes > limit_) {
        failed_ = true;
        throw VornException("a delivery is larger than " + std::to_string(limit_) + " bytes");
    }
    // Only the end of a delivery is pointed to.
    if (shared_.empty()) return;
    out_.append(shared_);
    shared_ = {};
    sharedOwner_ = nullptr;
}

void VornContentConnection::writeShared(VornSupport::VornObjectBase& owner, std::string_view bytes) {
    makeRoom(bytes.size());
    if (bytes.size() < shareFrom_) {
        out_.append(bytes);
    } else {
        shared_ = bytes;
        sharedOwner_ = &owner;
    }
}

void VornContentConnection::write(const char* buffer, int length, int& count) {
    const auto bytes = static_cast<std::size_t>(length > 0 ? length : 0);
    makeRoom(bytes);
    out_.append(buffer, bytes);
    count = static_cast<int>(bytes);
}

void VornContentConnection::writeInt(int value) {
    makeRoom(4);
    appendInt(out_, value);
}

void VornContentConnection::writeString(const std::string& value) {
    makeRoom(4 + value.size());
    appendString(out_, value);
}

void VornContentConnection::refuseRead() {
    throw VornException("nothing can be read while a delivery is written");
}

void VornContentConnection::readString(std::string&) { refuseRead(); }
std::uint32_t VornContentConnection::readUnsigned() { refuseRead(); }
std::uint16_t VornContentConnection::readUnsignedShort() { refuseRead(); }
int VornContentConnection::readInt() { refuseRead(); }
bool VornContentConnection::peekLine(char*, int&, bool&) { refuseRead(); }
char* VornContentConnection::readLine(char*, int, bool&) { refuseRead(); }
void VornContentConnection::read(char*, int, int&, bool) { refuseRead(); }
bool VornContentConnection::peek(char*, int&, bool&) { refuseRead(); }

}  // namespace VornNet
