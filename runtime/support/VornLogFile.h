#pragma once

#include "runtime/platform/AppendFile.h"
#include "runtime/platform/Export.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace VornSupport {

// What a log file does to the file system. This is the real one; tests put
// failing ones in its place. The functions are those of VornPlatform::AppendFile.
class VORN_EXPORT VornLogStorage {
public:
    VornLogStorage();
    virtual ~VornLogStorage();

    virtual VornPlatform::OsError open(const std::string& path);
    virtual void close();
    virtual bool isOpen() const;
    virtual VornPlatform::OsError write(std::string_view bytes, std::size_t& written);
    virtual VornPlatform::OsError truncate();
    virtual std::optional<std::uint64_t> size() const;
    virtual bool isAt(const std::string& path) const;
    virtual VornPlatform::OsError rename(const std::string& from, const std::string& to);

private:
    VornPlatform::AppendFile file_;
};

// A file of lines that outlasts what happens to files: lines that cannot be
// written are held back and written when the file takes them again, a file that
// was renamed or removed is noticed within a second and made anew, and the file
// never grows far beyond its limit. Anything that fails is tried again once a
// second at most, on the occasion of a write. Nothing waits or throws (but for
// memory). One thread at a time; `now` never goes back.
class VORN_EXPORT VornLogFile {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    // Makes the line that stands for so many lost ones.
    using LostLine = std::function<std::string(std::size_t lost)>;

    static constexpr std::size_t kMostHeld = 1024 * 1024;
    static constexpr std::chrono::seconds kRetry{1};
    static constexpr int kMostFiles = 1000;

    explicit VornLogFile(LostLine lostLine, std::unique_ptr<VornLogStorage> storage =
                                                std::make_unique<VornLogStorage>());
    ~VornLogFile();

    // Names the file, which is opened at the next write; until then, and with
    // an empty path, lines are held back. A write that would make the file
    // larger than `maxBytes` (0: no limit) is preceded by renaming PATH to
    // PATH.1, PATH.1 to PATH.2 and so on up to PATH.`files`, or by emptying it
    // when `files` is 0. What is no regular file is never renamed.
    void configure(const std::string& path, std::uint64_t maxBytes, int files);

    // Opens the file unless it is open, without regard to the time of the next try.
    void open(TimePoint now);
    // `line` includes its line end.
    void write(std::string_view line, TimePoint now);
    // Writes what is held back, without regard to the time of the next try.
    // False when something still is.
    bool flush(TimePoint now);

    // Why the file could not be opened or written, last time; none when it could,
    // or when it only takes no more for the moment.
    VornPlatform::OsError problem() const { return problem_; }
    const std::string& path() const { return path_; }
    std::size_t heldBytes() const { return heldBytes_; }
    std::size_t lostLines() const { return lost_; }

private:
    void hold(std::string_view line);
    bool catchUp(TimePoint now);
    bool makeReady(TimePoint now);
    bool put(std::string_view line, TimePoint now);
    void rotate(TimePoint now);
    VornPlatform::OsError tryToOpen();
    VornPlatform::OsError shiftFiles();

    const LostLine lostLine_;
    const std::unique_ptr<VornLogStorage> storage_;
    std::string path_;
    VornPlatform::OsError problem_;
    std::uint64_t maxBytes_ = 0;
    int files_ = 0;
    std::uint64_t fileBytes_ = 0;  // about as many; looked up once a second
    bool rotatable_ = false;

    TimePoint checkedAt_;  // when the name was last seen to lead to the open file
    TimePoint retryAt_;    // when a failed write or open is tried again
    TimePoint rotateAt_;   // when a failed rotation is tried again

    std::deque<std::string> held_;
    std::size_t heldBytes_ = 0;
    std::size_t headWritten_ = 0;  // so many bytes of held_.front() are in the file already
    std::size_t lost_ = 0;         // lines after the held ones
};

}  // namespace VornSupport
