#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace TestSupport {

// Long enough for a loaded machine, an emulator and a sanitizer together.
inline constexpr std::chrono::milliseconds kPatience{20'000};

// Waits until `condition` holds. False when it did not within `bound`. Looks
// often at first and every 20 ms later; no test sleeps anywhere else.
bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds bound = kPatience);

// Whether one of several tries takes less than `bound`, for what must never be so quick
// when it is wrong: a busy machine holds up one or the other try. `attempt` returns how
// long it took.
bool oneTakesLessThan(std::chrono::milliseconds bound,
                      const std::function<std::chrono::steady_clock::duration()>& attempt);
// Whether three of the first five tries succeed, for what a busy machine may hold up
// once or twice: where one of many would do, a fault that comes to pass every other time
// would hardly ever be seen.
bool mostSucceed(const std::function<bool()>& attempt);
// Whether as many take less than `bound`: for wake-ups, which a fault loses now and then.
bool mostTakeLessThan(std::chrono::milliseconds bound,
                      const std::function<std::chrono::steady_clock::duration()>& attempt);
// How long that takes.
std::chrono::steady_clock::duration timeOf(const std::function<void()>& work);

// Text of a path and back, UTF-8.
std::filesystem::path toPath(std::string_view text);
std::string toText(const std::filesystem::path& path);

// An empty directory of its own, removed with all it holds at the end.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::string text() const { return toText(path_); }
    // The path of an entry, UTF-8.
    std::string file(std::string_view name) const;

private:
    std::filesystem::path path_;
};

// Whole files, byte for byte. A file that cannot be read is empty; one that
// cannot be written throws.
std::string readFile(const std::string& path);
void writeFile(const std::string& path, std::string_view content);
bool exists(const std::string& path);

// Changes the working directory for a scope.
class WorkingDirectory {
public:
    explicit WorkingDirectory(const std::string& path);
    ~WorkingDirectory();
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

private:
    std::filesystem::path previous_;
};

}  // namespace TestSupport
