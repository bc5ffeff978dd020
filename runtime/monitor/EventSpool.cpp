#include "runtime/monitor/EventSpool.h"

#include "runtime/platform/AppendFile.h"
#include "runtime/platform/OsError.h"
#include "runtime/platform/PathText.h"
#include "runtime/support/VornLogging.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace VornMonitor {
namespace {

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

void logFailure(const char* what, const std::string& file, const std::string& reason) {
    VORN_LOG(2, "VornEventMonitorManager::processEvents: cannot "
                    << what << " " << file << ": " << reason);
}

// Offers what the taken file of the spool file `fileName` holds.
void readTaken(const std::string& fileName, const std::string& takenName,
               const std::function<void(const VornEventData&)>& offer) {
    {
        const auto path = VornPlatform::pathFromUtf8(takenName);
        if (!VornPlatform::isReadableAtOnce(path)) {
            logFailure("read", takenName, "it is no file");
            return;
        }
        std::ifstream in(path, std::ios::binary);
        if (!in) {
            logFailure("read", takenName, "it cannot be opened");
            return;
        }
        LineCutter cutter(fileName, offer);
        std::array<char, 16384> buffer;
        while (in.read(buffer.data(), buffer.size()) || in.gcount() > 0) {
            cutter.feed(buffer.data(), static_cast<std::size_t>(in.gcount()));
        }
        cutter.endLine();
    }
    const VornPlatform::OsError failed = VornPlatform::removeFile(takenName);
    if (failed) logFailure("delete", takenName, failed.text());
}

}  // namespace

void EventSpool::process(const std::string& fileName,
                         const std::function<void(const VornEventData&)>& offer) {
    const std::string takenName = fileName + ".taken";
    const auto taken = VornPlatform::pathFromUtf8(takenName);
    std::error_code ignored;
    if (std::filesystem::exists(taken, ignored)) readTaken(fileName, takenName, offer);
    if (std::filesystem::exists(taken, ignored)) return;  // would be overwritten

    const auto path = VornPlatform::pathFromUtf8(fileName);
    if (std::filesystem::exists(path, ignored) && !VornPlatform::isReadableAtOnce(path)) {
        logFailure("take", fileName, "it is no file");
        return;
    }
    const VornPlatform::OsError failed = VornPlatform::renameFile(fileName, takenName);
    if (!failed) {
        readTaken(fileName, takenName, offer);
    } else if (failed.condition() != VornPlatform::OsCondition::NotFound) {
        logFailure("take", fileName, failed.text());
    }
}

}  // namespace VornMonitor
