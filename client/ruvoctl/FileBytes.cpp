#include "client/ruvoctl/FileBytes.h"

#include "client/ruvoctl/Session.h"
#include "runtime/platform/PathText.h"

#include <fstream>
#include <limits>

namespace Ruvoctl {

std::string readFile(const std::string& path) {
    std::ifstream file(VornPlatform::pathFromUtf8(path), std::ios::binary);
    if (!file) throw Failure(kBadUsage, "cannot open the file " + path);
    std::string bytes;
    char part[65536];
    while (file.read(part, sizeof part), file.gcount() > 0) {
        bytes.append(part, static_cast<std::size_t>(file.gcount()));
        if (bytes.size() > std::numeric_limits<std::int32_t>::max()) {
            throw Failure(kBadUsage, "the file " + path + " has 2 GiB or more");
        }
    }
    if (file.bad()) throw Failure(kBadUsage, "cannot read the file " + path);
    return bytes;
}

}  // namespace Ruvoctl
