#include "client/ruvoctl/FileBytes.h"

#include "client/ruvoctl/Session.h"
#include "runtime/platform/PathText.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>

namespace Ruvoctl {
namespace {

constexpr std::uintmax_t kMost = std::numeric_limits<std::int32_t>::max();

[[noreturn]] void refuseSize(const std::string& path) {
    throw Failure(kBadUsage, "the file " + path + " has 2 GiB or more");
}

}  // namespace

std::string readFile(const std::string& path) {
    const auto file = VornPlatform::pathFromUtf8(path);
    // What has no size, a pipe for one, is measured while it is read.
    std::error_code failed;
    const std::uintmax_t size = std::filesystem::file_size(file, failed);
    if (!failed && size > kMost) refuseSize(path);

    std::ifstream stream(file, std::ios::binary);
    if (!stream) throw Failure(kBadUsage, "cannot open the file " + path);
    std::string bytes;
    char part[65536];
    while (stream.read(part, sizeof part), stream.gcount() > 0) {
        bytes.append(part, static_cast<std::size_t>(stream.gcount()));
        if (bytes.size() > kMost) refuseSize(path);
    }
    if (stream.bad()) throw Failure(kBadUsage, "cannot read the file " + path);
    return bytes;
}

}  // namespace Ruvoctl
