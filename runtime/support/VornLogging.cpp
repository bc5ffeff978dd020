#include "runtime/support/VornLogging.h"

#include "runtime/platform/ErrorState.h"
#include "runtime/platform/PathText.h"
#include "runtime/platform/StandardError.h"
#include "runtime/platform/ThreadSlot.h"
#include "runtime/support/VornLogFile.h"
#include "runtime/support/VornLogRecord.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornThreadName.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

namespace VornSupport {
namespace {

using VornPlatform::ErrorStateKeeper;
using VornPlatform::SystemLogSeverity;
using VornPlatform::ThreadSlot;

constexpr int kHighestLevel = 9;
constexpr std::chrono::milliseconds kLastLines{500};  // for standard error to take them

// The unfinished records of one thread, the innermost last. A record whose
// statement was left by an exception is never ended: it stays below later ones
// until it is the oldest of too many.
class OpenRecords {
public:
    VornLogRecord& push() {
        if (count_ == kMost) {
            std::rotate(records_.begin(), records_.begin() + 1, records_.end());
            return records_.back();
        }
        if (count_ == records_.size()) records_.emplace_back();
        return records_[count_++];
    }
    VornLogRecord& top() { return records_[count_ - 1]; }
    void pop() { records_[--count_].trim(); }
    bool isEmpty() const { return count_ == 0; }

private:
    static constexpr std::size_t kMost = 16;
    std::vector<VornLogRecord> records_;  // kept for their memory
    std::size_t count_ = 0;
};

// Freed with its thread, which may log until its very end.
ThreadSlot& openRecordsSlot() {
    static ThreadSlot* const slot =
        new ThreadSlot([](void* records) { delete static_cast<OpenRecords*>(records); });
    return *slot;
}

// The calling thread's, or null.
OpenRecords* openRecords() { return static_cast<OpenRecords*>(openRecordsSlot().get()); }

VornLogRecord& openRecord() {
    OpenRecords* records = openRecords();
    if (records == nullptr) {
        auto made = std::make_unique<OpenRecords>();
        openRecordsSlot().set(made.get());
        records = made.release();
    }
    return records->push();
}

// The record that pieces go into, or null.
VornLogRecord* innermostRecord() {
    OpenRecords* const records = openRecords();
    return records == nullptr || records->isEmpty() ? nullptr : &records->top();
}

// Gives up the innermost record at the end of the scope.
struct RecordCloser {
    ~RecordCloser() { openRecords()->pop(); }
};

SystemLogSeverity severityOf(int level) {
    if (level == 0) return SystemLogSeverity::Error;
    if (level <= 2) return SystemLogSeverity::Warning;
    if (level == 3) return SystemLogSeverity::Notice;
    return level <= 5 ? SystemLogSeverity::Information : SystemLogSeverity::Debug;
}

bool goesTo(int target, VornLogTarget wanted) {
    const auto chosen = static_cast<VornLogTarget>(target);
    return chosen == wanted ||
           (chosen == VornLogTarget::FileAndStandardError &&
            (wanted == VornLogTarget::File || wanted == VornLogTarget::StandardError));
}

}  // namespace

std::atomic<int> VornLogging::on_{1};

struct VornLogging::Impl {
    // The file asks for the line while it is written to, so with the lock held.
    Impl()
        : file([this](std::size_t lost) VORN_NO_THREAD_SAFETY_ANALYSIS { return lostLine(lost); }) {
    }

    void switchOn() VORN_REQUIRES(mutex) { on_ = allowed ? level.load() : -1; }
    void write(VornLogRecord& record) VORN_EXCLUDES(mutex);
    std::string lostLine(std::size_t lost) VORN_REQUIRES(mutex);
    void tellOfTrouble() VORN_REQUIRES(mutex);

    std::atomic<int> level{on_.load()};
    std::atomic<int> target{static_cast<int>(VornLogTarget::StandardError)};

    VornMutex mutex;  // innermost: nothing else is taken while it is held
    bool allowed VORN_GUARDED_BY(mutex) = true;
    VornLogClock clock VORN_GUARDED_BY(mutex);
    VornLogFile file VORN_GUARDED_BY(mutex);
    bool toldOfTrouble VORN_GUARDED_BY(mutex) = false;
    SystemWriter systemWriter VORN_GUARDED_BY(mutex) = &VornPlatform::writeSystemLog;
};

// The time is taken under the lock, so that times ascend in the file.
void VornLogging::Impl::write(VornLogRecord& record) {
    const int to = target;
    VornMutexLock lock(mutex);
    if (goesTo(to, VornLogTarget::System)) systemWriter(severityOf(record.level()), record.body());
    const bool toFile = goesTo(to, VornLogTarget::File);
    const bool toStandardError = goesTo(to, VornLogTarget::StandardError);
    if (!toFile && !toStandardError) return;
    const std::string_view line = record.line(clock.format(std::chrono::system_clock::now()));
    if (toStandardError) VornPlatform::writeStandardError(line);
    if (toFile) {
        file.write(line, std::chrono::steady_clock::now());
        tellOfTrouble();
    }
}

// Nobody would look for the reason in a log that is not there.
void VornLogging::Impl::tellOfTrouble() {
    const VornPlatform::OsError problem = file.problem();
    if (!problem || toldOfTrouble) return;
    toldOfTrouble = true;
    VornPlatform::writeStandardError("VornLogging: the log file " + file.path() +
                                     " cannot be written: " + problem.text() + "\n");
}

std::string VornLogging::Impl::lostLine(std::size_t lost) {
    VornLogRecord record;
    record.begin(0, false, "VornLogging");
    record.append(std::to_string(lost) + " records lost");
    record.end();
    return std::string(record.line(clock.format(std::chrono::system_clock::now())));
}

VornLogging::VornLogging() : impl_(std::make_unique<Impl>()) {}
VornLogging::~VornLogging() = default;

VornLogging& VornLogging::getInstance() {
    static VornLogging* const instance = new VornLogging;
    return *instance;
}

void VornLogging::setAccessAllowed(bool allowed) {
    Impl& impl = *getInstance().impl_;
    VornMutexLock lock(impl.mutex);
    impl.allowed = allowed;
    impl.switchOn();
}

int VornLogging::getLogLevel() const { return impl_->level; }

void VornLogging::setLogLevel(int level) {
    if (level < 0 || level > kHighestLevel) return;
    VornMutexLock lock(impl_->mutex);
    impl_->level = level;
    impl_->switchOn();
}

int VornLogging::getTarget() const { return impl_->target; }

void VornLogging::setTarget(int target) {
    const bool known = target >= 0 && target <= static_cast<int>(VornLogTarget::System);
    impl_->target = known ? target : static_cast<int>(VornLogTarget::None);
}

void VornLogging::setFile(const std::string& path, std::uint64_t maxBytes, int files) {
    const ErrorStateKeeper keeper;
    std::string absolute = path;
    if (!path.empty()) {
        std::error_code failed;
        const auto full = std::filesystem::absolute(VornPlatform::pathFromUtf8(path), failed);
        if (!failed) absolute = VornPlatform::utf8FromPath(full);
    }
    VornMutexLock lock(impl_->mutex);
    impl_->file.configure(absolute, maxBytes, files);
    impl_->toldOfTrouble = false;
}

void VornLogging::openFile() {
    const ErrorStateKeeper keeper;
    try {
        VornMutexLock lock(impl_->mutex);
        if (!goesTo(impl_->target, VornLogTarget::File)) return;
        impl_->file.open(std::chrono::steady_clock::now());
        impl_->tellOfTrouble();
    } catch (...) {
    }
}

void VornLogging::setSystemName(const std::string& name) {
    const ErrorStateKeeper keeper;
    VornMutexLock lock(impl_->mutex);
    VornPlatform::setSystemLogName(name);
}

void VornLogging::setSystemWriterForTest(SystemWriter writer) {
    VornMutexLock lock(impl_->mutex);
    impl_->systemWriter = writer == nullptr ? &VornPlatform::writeSystemLog : writer;
}

void VornLogging::flush() {
    const ErrorStateKeeper keeper;
    VornMutexLock lock(impl_->mutex);
    impl_->file.flush(std::chrono::steady_clock::now());
    lock.unlock();
    VornPlatform::flushStandardError(kLastLines);
}

// Memory can run out in each of the following; a piece or a record is lost then
// and nobody is told, which beats taking the caller down with it.

VornLogging& VornLogging::operator<<(setloglevel level) {
    const ErrorStateKeeper keeper;
    try {
        const bool off = level.level < 0 || !isOn(level.level) ||
                         impl_->target == static_cast<int>(VornLogTarget::None);
        openRecord().begin(level.level, off, threadName());
    } catch (...) {
    }
    return *this;
}

VornLogging& VornLogging::operator<<(VornEndRecord) {
    const ErrorStateKeeper keeper;
    try {
        VornLogRecord* const record = innermostRecord();
        if (record == nullptr) return *this;
        const RecordCloser closer;
        if (record->isOff()) return *this;
        record->end();
        impl_->write(*record);
    } catch (...) {
    }
    return *this;
}

VornLogging& VornLogging::operator<<(std::string_view text) {
    const ErrorStateKeeper keeper;
    try {
        VornLogRecord* const record = innermostRecord();
        if (record != nullptr) record->append(text);
    } catch (...) {
    }
    return *this;
}

VornLogging& VornLogging::operator<<(const std::string& text) {
    return *this << std::string_view(text);
}

VornLogging& VornLogging::operator<<(const char* text) {
    return *this << std::string_view(text == nullptr ? "(null)" : text);
}

VornLogging& VornLogging::operator<<(char c) { return *this << std::string_view(&c, 1); }

VornLogging& VornLogging::operator<<(bool value) {
    return *this << std::string_view(value ? "true" : "false");
}

VornLogging& VornLogging::operator<<(long long value) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    return *this << std::string_view(digits, end);
}

VornLogging& VornLogging::operator<<(unsigned long long value) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    return *this << std::string_view(digits, end);
}

VornLogging& VornLogging::operator<<(int value) { return *this << static_cast<long long>(value); }
VornLogging& VornLogging::operator<<(long value) { return *this << static_cast<long long>(value); }
VornLogging& VornLogging::operator<<(unsigned int value) {
    return *this << static_cast<unsigned long long>(value);
}
VornLogging& VornLogging::operator<<(unsigned long value) {
    return *this << static_cast<unsigned long long>(value);
}

VornLogging& VornLogging::operator<<(const void* pointer) {
    char digits[24] = {'0', 'x'};
    const auto value = reinterpret_cast<std::uintptr_t>(pointer);
    const auto end = std::to_chars(digits + 2, digits + sizeof digits, value, 16).ptr;
    return *this << std::string_view(digits, end);
}

VornLogging& VornLogging::operator<<(VornPlatform::OsError error) {
    const ErrorStateKeeper keeper;
    std::string text;
    try {
        text = error.text();
    } catch (...) {
        return *this << "error " << error.code();
    }
    return *this << text;
}

void VornLogging::breakOff() { getInstance() << "... (no memory for the rest)" << endrecord; }

}  // namespace VornSupport
