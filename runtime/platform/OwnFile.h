#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace VornPlatform {

// A regular file that is read from its beginning to its end, byte for byte, and
// that nobody may have put words into who has no say over this process. Not
// inherited by child processes. One thread at a time.
class VORN_EXPORT OwnFile {
public:
    enum class Trust {
        Good,
        NoFile,    // a folder, a pipe, a device, a link to nothing
        Foreign,   // POSIX: it belongs to neither this process's user nor root
        Writable,  // POSIX: everybody may write to it
    };

    OwnFile() = default;
    ~OwnFile() { close(); }
    OwnFile(const OwnFile&) = delete;
    OwnFile& operator=(const OwnFile&) = delete;

    // Opens the file. With a `trust` other than Good it is not open afterwards;
    // that is no error. Windows leaves the rights to those of the folder.
    OsError open(const std::string& path, Trust& trust);
    // Reads up to `size` bytes; `count` of 0 is the end.
    OsError read(char* buffer, std::size_t size, std::size_t& count);
    void close();
    bool isOpen() const { return handle_ != kNone; }

private:
    static constexpr std::intptr_t kNone = -1;
    std::intptr_t handle_ = kNone;
};

}  // namespace VornPlatform
