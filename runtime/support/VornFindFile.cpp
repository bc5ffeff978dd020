#include "runtime/support/VornFindFile.h"

#include "runtime/platform/PathText.h"
#include "runtime/support/VornWildcard.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

namespace VornSupport {
namespace {

namespace fs = std::filesystem;

}  // namespace

VornFindFile::VornFindFile(const std::string& pattern, Entries entries) {
    const fs::path path = VornPlatform::pathFromUtf8(pattern);
    const std::string wanted = VornPlatform::utf8FromPath(path.filename());
    if (wanted.empty()) return;
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    const bool ignoreCase = VornPlatform::fileNamesIgnoreCase();

    std::error_code failed;
    fs::directory_iterator entry(folder, failed);
    if (failed) return;
    if (entries == Entries::All) {
        for (const char* dots : {".", ".."}) {
            if (matchesWildcard(dots, wanted, ignoreCase)) names_.emplace_back(dots);
        }
    }
    while (entry != fs::directory_iterator()) {
        std::error_code unknown;
        if (entries == Entries::All || !entry->is_directory(unknown)) {
            std::string name = VornPlatform::utf8FromPath(entry->path().filename());
            if (matchesWildcard(name, wanted, ignoreCase)) names_.push_back(std::move(name));
        }
        entry.increment(failed);
        if (failed) break;
    }
    std::sort(names_.begin(), names_.end());
}

std::string VornFindFile::next() { return hasMore() ? std::move(names_[next_++]) : std::string(); }

}  // namespace VornSupport
