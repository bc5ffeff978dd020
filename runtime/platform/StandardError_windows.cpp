#include "runtime/platform/StandardError.h"

#include "runtime/platform/NativeLock.h"
#include "runtime/platform/NativeThread.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <mutex>
#include <new>
#include <string>

namespace VornPlatform {
namespace {

constexpr std::chrono::milliseconds kPatience{500};
constexpr std::size_t kStack = 64 * 1024;

HANDLE standardError() {
    const HANDLE handle = ::GetStdHandle(STD_ERROR_HANDLE);
    return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
}

bool writeAll(HANDLE handle, std::string_view text) {
    while (!text.empty()) {
        DWORD count = 0;
        const auto size = static_cast<DWORD>(std::min<std::size_t>(text.size(), MAXLONG));
        if (!::WriteFile(handle, text.data(), size, &count, nullptr)) return false;
        text.remove_prefix(count);
    }
    return true;
}

// Writes to what may block for as long as somebody likes (a console in which
// text is selected, a pipe) on a thread of its own, and hands texts to it.
// Lives as long as the process.
class Writer {
public:
    static Writer& getInstance() {
        static Writer* const instance = new Writer;
        return *instance;
    }

    bool write(std::string_view text) {
        std::unique_lock<NativeMutex> lock(mutex_);
        if (!isStarted_ && startThread({.name = "StandardError", .stackBytes = kStack}, &enter,
                                       this)) {
            lock.unlock();
            return writeAll(standardError(), text);
        }
        isStarted_ = true;
        const bool kept = keepLocked(text);
        given_.notifyOne();
        return kept && !isStalled_ && waitLocked(kPatience);
    }

    bool flush(std::chrono::milliseconds patience) {
        const std::lock_guard<NativeMutex> lock(mutex_);
        return waitLocked(patience);
    }

private:
    // Between what is kept and what follows a loss comes the line that tells of
    // it, hence nothing more is kept until that has been taken.
    bool keepLocked(std::string_view text) {
        const bool fits = kept_.empty() || kept_.size() + text.size() <= kMostKeptOfStandardError;
        try {
            if (lost_ == 0 && fits) {
                kept_.append(text);
                return true;
            }
        } catch (const std::bad_alloc&) {
        }
        ++lost_;
        return false;
    }

    bool waitLocked(std::chrono::milliseconds patience) {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (isBusyLocked()) {
            if (!drained_.waitUntil(mutex_, deadline) && isBusyLocked()) {
                isStalled_ = true;
                return false;
            }
        }
        return true;
    }

    bool hasWorkLocked() const { return !kept_.empty() || lost_ > 0; }
    bool isBusyLocked() const { return isWriting_ || hasWorkLocked(); }

    static void enter(void* raw) { static_cast<Writer*>(raw)->run(); }

    void run() {
        std::unique_lock<NativeMutex> lock(mutex_);
        for (;;) {
            while (!hasWorkLocked()) given_.wait(mutex_);
            taken_.swap(kept_);
            const std::size_t lost = lost_;
            lost_ = 0;
            isWriting_ = true;
            lock.unlock();
            writeTaken(lost);
            lock.lock();
            isWriting_ = false;
            if (hasWorkLocked()) continue;
            isStalled_ = false;
            drained_.notifyAll();
        }
    }

    // What cannot be written at all is nobody's loss.
    void writeTaken(std::size_t lost) {
        const HANDLE handle = standardError();
        writeAll(handle, taken_);
        taken_.clear();
        if (lost == 0) return;
        char line[64];
        const int size = std::snprintf(line, sizeof line, "%zu lines lost\n", lost);
        writeAll(handle, {line, static_cast<std::size_t>(size)});
    }

    NativeMutex mutex_;
    NativeCondition given_;
    NativeCondition drained_;
    std::string kept_;       // for the thread to take
    std::size_t lost_ = 0;   // behind kept_
    bool isStarted_ = false;
    bool isWriting_ = false;
    bool isStalled_ = false;  // somebody waited in vain: nobody waits again until all is written
    std::string taken_;       // the thread's
};

}  // namespace

bool writeStandardError(std::string_view text) {
    const HANDLE handle = standardError();
    if (handle == nullptr) return false;
    if (::GetFileType(handle) == FILE_TYPE_DISK) return writeAll(handle, text);
    return Writer::getInstance().write(text);
}

bool flushStandardError(std::chrono::milliseconds patience) {
    return Writer::getInstance().flush(patience);
}

}  // namespace VornPlatform
