#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace VornPlatform {

// A file that is written from its beginning to its end, byte for byte. POSIX:
// only its owner may read and write it. Not inherited by child processes. One
// thread at a time.
class VORN_EXPORT FreshFile {
public:
    FreshFile() = default;
    ~FreshFile() { close(); }
    FreshFile(const FreshFile&) = delete;
    FreshFile& operator=(const FreshFile&) = delete;

    // Creates the file. One that is there goes first, as does a link of that name,
    // on POSIX also a pipe: nobody who prepared it shares the new one. Closes
    // the one that was open before.
    OsError create(const std::string& path);
    // All of the bytes, or an error.
    OsError write(std::string_view bytes);
    // Returns when the system has put on the disk what was written.
    OsError flushToDisk();
    // The error of what the system wrote late, if it tells.
    OsError close();
    bool isOpen() const { return handle_ != kNone; }

private:
    static constexpr std::intptr_t kNone = -1;
    std::intptr_t handle_ = kNone;
};

// Gives the file `fresh` the name `current`, in place of the file of that name,
// which becomes `previous`, in place of the file of that name. One step for
// everybody else, also when the system stops halfway: who looks for `current`
// finds the old file or the new one, never none. When there is no `current` yet,
// there is no `previous` afterwards. An error means that `current` is the old
// file still; what only keeps `previous` from being right is not reported. All
// three in one folder.
VORN_EXPORT OsError replaceFile(const std::string& fresh, const std::string& current,
                                const std::string& previous);

// Returns when the system has put on the disk which names the folder of `path`
// holds: before that, a system that stops may come up with the old ones. Does
// nothing on Windows, where a new name is put there when it is given, and with
// file systems that know no such thing.
VORN_EXPORT OsError flushFolderOf(const std::string& path);

// What ends a line of a text file, and what stands between the parts of a path.
VORN_EXPORT std::string_view lineEnd();
VORN_EXPORT char pathSeparator();

}  // namespace VornPlatform
