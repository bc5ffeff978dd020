#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace VornPlatform {

// A file that is only ever written to at its end, as a log is: whoever else
// writes to it, no write overwrites another. Others may read, rename and
// remove it meanwhile. Not inherited by child processes. One thread at a time.
class VORN_EXPORT AppendFile {
public:
    AppendFile() = default;
    ~AppendFile();
    AppendFile(const AppendFile&) = delete;
    AppendFile& operator=(const AppendFile&) = delete;

    // Opens the file, which is created when it does not exist, readable for
    // its owner and group. Closes the one that was open before.
    OsError open(const std::string& path);
    void close();
    bool isOpen() const { return handle_ != kNone; }

    // Writes with one call of the system. `written` may be less than the size,
    // with or without an error. Never waits for a reader of a pipe.
    OsError write(std::string_view bytes, std::size_t& written);
    OsError truncate();
    // Empty for what is no regular file.
    std::optional<std::uint64_t> size() const;
    // Whether `path` still leads to the open file.
    bool isAt(const std::string& path) const;

private:
    static constexpr std::intptr_t kNone = -1;

    struct Identity {
        std::uint64_t volume = 0;
        std::uint64_t file = 0;
        bool operator==(const Identity&) const = default;
    };
    static std::optional<Identity> identityOf(std::intptr_t handle);

    std::intptr_t handle_ = kNone;
    std::optional<Identity> identity_;  // as it was found when the file was opened
};

// Gives `from` the name `to`, in place of an existing file of that name.
VORN_EXPORT OsError renameFile(const std::string& from, const std::string& to);
VORN_EXPORT OsError removeFile(const std::string& path);

}  // namespace VornPlatform
