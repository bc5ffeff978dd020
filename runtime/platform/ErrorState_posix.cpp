#include "runtime/platform/ErrorState.h"

#include <cerrno>

namespace VornPlatform {

ErrorStateKeeper::ErrorStateKeeper() : errorNumber_(errno) {}

ErrorStateKeeper::~ErrorStateKeeper() { errno = errorNumber_; }

}  // namespace VornPlatform
