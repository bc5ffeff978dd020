#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"

#include <optional>
#include <string>

namespace VornPlatform {

// The environment of the process. Reading is free on any thread as long as no
// thread writes; so variables are set before other threads start.

// Empty optional when the variable is not set.
VORN_EXPORT std::optional<std::string> getEnv(const std::string& name);
// Sets or, without a value, removes a variable, for this process and the
// children that it starts from then on.
VORN_EXPORT OsError setEnv(const std::string& name, const std::optional<std::string>& value);

// The working directory, which all threads share.
VORN_EXPORT OsError currentDirectory(std::string& path);
VORN_EXPORT OsError changeDirectory(const std::string& path);

// The file that this process runs, and its folder (no separator at the end).
// Empty when the system cannot tell.
VORN_EXPORT std::string executablePath();
VORN_EXPORT std::string executableFolder();

}  // namespace VornPlatform
