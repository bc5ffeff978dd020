#include "scheduler/RuvoTSStore.h"

#include "runtime/net/VornNetLimits.h"
#include "runtime/platform/AppendFile.h"
#include "runtime/platform/Environment.h"
#include "runtime/platform/OwnFile.h"
#include "runtime/support/VornLogging.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <utility>

namespace RuvoService {

using VornPlatform::OwnFile;

namespace {

constexpr std::size_t kGather = 256 * 1024;       // bytes that are written at once
constexpr std::size_t kKeptCapacity = 1024 * 1024;  // of the buffer between two stores

// Puts lines together from pieces of a file. Of those that are too long it keeps
// nothing.
class LineCutter {
public:
    explicit LineCutter(const std::function<void(std::string_view)>& visit) : visit_(visit) {}

    std::size_t longest() const { return longest_; }
    bool hasLeftOut() const { return hasLeftOut_; }

    void add(std::string_view piece) {
        for (;;) {
            const std::size_t end = piece.find('\n');
            append(piece.substr(0, end));
            if (end == piece.npos) return;
            endLine();
            piece.remove_prefix(end + 1);
        }
    }
    // A last line may lack its line end.
    void finish() {
        if (!line_.empty()) endLine();
    }

private:
    void append(std::string_view piece) {
        if (tooLong_ || line_.size() + piece.size() > longest_) {
            tooLong_ = hasLeftOut_ = true;
            std::string().swap(line_);
        } else {
            line_ += piece;
        }
    }
    void endLine() {
        if (!tooLong_) visit_(line_);
        tooLong_ = false;
        line_.clear();
    }

    const std::function<void(std::string_view)>& visit_;
    const std::size_t longest_ = RuvoTSStore::longestLine();
    std::string line_;
    bool tooLong_ = false;
    bool hasLeftOut_ = false;
};

const char* textOf(OwnFile::Trust trust) {
    switch (trust) {
        case OwnFile::Trust::Foreign: return "it belongs to another user";
        case OwnFile::Trust::Writable: return "everybody may write to it";
        default: return "it is no file";
    }
}

}  // namespace

std::size_t RuvoTSStore::longestLine() {
    constexpr std::size_t kRest = 1024;  // kind, time, numbers, what ends the texts
    const auto& limits = VornNet::VornNetLimits::getInstance();
    const VornNet::VornNetLimits defaults;
    const std::size_t text = 3 * std::size_t{std::max<std::uint32_t>(limits.stringBytes,
                                                                     defaults.stringBytes)};
    const std::size_t block = 2 * std::size_t{std::max<std::uint32_t>(limits.blockBytes,
                                                                      defaults.blockBytes)};
    return kRest + text + std::max(4 * text, block);
}

std::string RuvoTSStore::inTemporaryFolder(const std::string& name) {
    const std::string folder = VornPlatform::getEnv("TEMP").value_or("");
    return folder.empty() ? name : folder + VornPlatform::pathSeparator() + name;
}

RuvoTSStore::Names RuvoTSStore::names() {
    const std::string base = inTemporaryFolder("RuvoTSEngineExecTasks");
    return {base + ".dat", base + ".tmp", base + ".bak"};
}

bool RuvoTSStore::begin() {
    names_ = names();
    buffer_.clear();
    error_ = file_.create(names_.fresh);
    if (!error_) return true;
    note(Lack::All,
         "cannot write " + names_.fresh + ": " + error_.text() + "; the old store stays");
    return false;
}

void RuvoTSStore::settle() {
    if (buffer_.size() < kGather) return;
    if (!error_) error_ = file_.write(buffer_);
    buffer_.clear();
}

bool RuvoTSStore::finish() {
    if (!error_) error_ = file_.write(buffer_);
    if (!error_) error_ = file_.flushToDisk();
    const VornPlatform::OsError closing = file_.close();
    if (!error_) error_ = closing;
    buffer_.clear();
    if (buffer_.capacity() > kKeptCapacity) buffer_.shrink_to_fit();

    std::string what = "cannot write " + names_.fresh;
    if (!error_) {
        what = "cannot replace " + names_.current;
        error_ = VornPlatform::replaceFile(names_.fresh, names_.current, names_.previous);
    }
    if (error_) {
        VornPlatform::removeFile(names_.fresh);  // a full disk needs the room
        note(Lack::All, what + ": " + error_.text() + "; the old store stays");
        return false;
    }
    flushName();
    return true;
}

bool RuvoTSStore::flushName() {
    if (const auto error = VornPlatform::flushFolderOf(names_.current)) {
        note(Lack::Name, "cannot flush the folder of " + names_.current + ": " + error.text() +
                             "; the new store may be lost when the system stops now");
        return false;
    }
    condition_.clear();
    if (std::exchange(lack_, Lack::Nothing) != Lack::Nothing) {
        VORN_LOG(2, "RuvoTSTaskSet::recordTaskSet: " << names_.current << " is written again");
    }
    return true;
}

void RuvoTSStore::abandon(const char* reason) noexcept {
    const bool lacked = lack_ == Lack::All;
    lack_ = Lack::All;
    try {
        file_.close();
        std::string().swap(buffer_);
        VornPlatform::removeFile(names_.fresh);
        note(Lack::All, "cannot write " + names_.fresh + ": " + reason + "; the old store stays");
    } catch (const std::exception&) {
        if (lacked) return;
        VORN_LOG(2, "RuvoTSTaskSet::recordTaskSet: no memory; the old store stays");
    }
}

void RuvoTSStore::note(Lack lack, const std::string& condition) {
    lack_ = lack;
    if (condition == condition_) return;
    condition_ = condition;
    VORN_LOG(2, "RuvoTSTaskSet::recordTaskSet: " << condition);
}

bool RuvoTSStore::read(const std::string& file,
                       const std::function<void(std::string_view)>& visit, std::string& reason) {
    VornPlatform::OwnFile store;
    OwnFile::Trust trust{};
    if (const auto error = store.open(file, trust)) {
        reason = error.text();
        return error.condition() == VornPlatform::OsCondition::NotFound;
    }
    if (trust != OwnFile::Trust::Good) {
        reason = textOf(trust);
        return false;
    }
    LineCutter lines(visit);
    std::string piece(kGather, '\0');
    for (std::size_t count = 1; count > 0;) {
        if (const auto error = store.read(piece.data(), piece.size(), count)) {
            reason = error.text();
            return false;
        }
        lines.add(std::string_view(piece).substr(0, count));
    }
    lines.finish();
    if (!lines.hasLeftOut()) return true;
    reason = "a line is longer than " + std::to_string(lines.longest()) +
             " bytes, the most that a task takes with these ruvod.limits";
    return false;
}

}  // namespace RuvoService
