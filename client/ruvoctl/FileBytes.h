#pragma once

#include <string>

namespace Ruvoctl {

// A file's bytes. Throws Failure (bad usage) when it cannot be read or is
// larger than any block the daemon takes, 2 GiB.
std::string readFile(const std::string& path);

}  // namespace Ruvoctl
