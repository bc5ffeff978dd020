#include "runtime/support/VornThreadName.h"

#include <algorithm>
#include <cstddef>

namespace VornSupport {
namespace {

// Nothing that needs a destructor: a thread may log until its very end.
struct Name {
    char text[63] = {'m', 'a', 'i', 'n'};
    unsigned char length = 4;
};
thread_local Name ours;

// The longest prefix that fits and does not cut a UTF-8 character.
std::size_t fittingLength(const std::string& name) {
    std::size_t length = std::min(name.size(), sizeof ours.text);
    if (length == name.size()) return length;
    while (length > 0 && (static_cast<unsigned char>(name[length]) & 0xC0) == 0x80) --length;
    return length;
}

}  // namespace

void setThreadName(const std::string& name) {
    const std::size_t length = fittingLength(name);
    std::copy_n(name.data(), length, ours.text);
    ours.length = static_cast<unsigned char>(length);
}

std::string_view threadName() { return {ours.text, ours.length}; }

}  // namespace VornSupport
