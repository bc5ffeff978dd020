#pragma once

#include "runtime/platform/Export.h"

#include <cstddef>
#include <string>
#include <vector>

namespace VornSupport {

// The names in one directory that match a pattern. The pattern is a path whose
// last part may hold "*" (any number of characters, none included) and "?" (one
// character); names that begin with a point are names like any other. Case
// counts as it does for the system's files. The names are those of the moment
// of construction, without their directory, in ascending order of their bytes.
// A directory that does not exist or cannot be read has none. One thread at a
// time.
class VORN_EXPORT VornFindFile {
public:
    enum class Entries {
        Files,  // everything but directories
        All     // directories too, "." and ".." among them
    };

    explicit VornFindFile(const std::string& pattern, Entries entries = Entries::Files);

    bool hasMore() const { return next_ < names_.size(); }
    // Empty when there is no more.
    std::string next();

private:
    std::vector<std::string> names_;
    std::size_t next_ = 0;
};

}  // namespace VornSupport
