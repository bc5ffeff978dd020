#include "runtime/monitor/EventSpool.h"

#include "runtime/platform/PathText.h"
#include "runtime/support/VornLogging.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace VornMonitor {
namespace {

namespace fs = std::filesystem;

// Cuts a stream of bytes into lines of bounded length.
class LineCutter {
public:
    LineCutter(const std::string& source, const std::function<void(const VornEventData&)>& offer)
        : source_(source), offer_(offer) {}

    void feed(const char* bytes, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            if (bytes[i] == '\n') {
                endLine();
            } else if (line_.size() < EventSpool::kMaxLine) {
                line_.push_back(bytes[i]);
            }
        }
    }
    void endLine() {
        if (!line_.empty() && line_.back() == '\r') line_.pop_back();
        if (!line_.empty()) offer_({source_, line_});
        line_.clear();
    }

private:
    const std::string& source_;
    const std::function<void(const VornEventData&)>& offer_;
    std::string line_;
};

void logFailure(const char* what, const fs::path& file, const std::error_code& error) {
    VORN_LOG(2, "VornEventMonitorManager::processEvents: cannot "
                    << what << " " << VornPlatform::utf8FromPath(file) << ": " << error.message());
}

void readTaken(const std::string& fileName, const fs::path& taken,
               const std::function<void(const VornEventData&)>& offer) {
    {
        std::ifstream in(taken, std::ios::binary);
        if (!in) {
            logFailure("read", taken, std::make_error_code(std::errc::io_error));
            return;
        }
        LineCutter cutter(fileName, offer);
        std::array<char, 16384> buffer;
        while (in.read(buffer.data(), buffer.size()) || in.gcount() > 0) {
            cutter.feed(buffer.data(), static_cast<std::size_t>(in.gcount()));
        }
        cutter.endLine();
    }
    std::error_code error;
    fs::remove(taken, error);
    if (error) logFailure("delete", taken, error);
}

}  // namespace

void EventSpool::process(const std::string& fileName,
                         const std::function<void(const VornEventData&)>& offer) {
    const fs::path file = VornPlatform::pathFromUtf8(fileName);
    const fs::path taken = VornPlatform::pathFromUtf8(fileName + ".taken");
    std::error_code error;
    if (fs::exists(taken, error)) readTaken(fileName, taken, offer);
    if (fs::exists(taken, error)) return;  // would be overwritten

    fs::rename(file, taken, error);
    if (error == std::errc::no_such_file_or_directory) return;
    if (error) {
        logFailure("take", file, error);
        return;
    }
    readTaken(fileName, taken, offer);
}

}  // namespace VornMonitor
