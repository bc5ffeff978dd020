#include "scheduler/RuvoTSExecTask.h"

#include "runtime/platform/AppendFile.h"
#include "runtime/platform/BatchCommand.h"
#include "runtime/platform/FreshFile.h"
#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSEscape.h"
#include "scheduler/RuvoTSRuns.h"
#include "scheduler/RuvoTSStore.h"
#include "scheduler/RuvoTSTaskThread.h"

#include <atomic>
#include <new>

namespace RuvoService {
namespace {

constexpr int kPauseMs = 100;
constexpr std::int32_t kNoInterpreter = 127;  // as shells say it
constexpr std::int32_t kNoProcess = -1;       // as system(3) says it
constexpr int kMostWaitFailures = 50;

std::atomic<int> momentMs{200};

// A text as the batch file has it: a zero byte ends it, as it does in the store, so
// that the file is the same after a restart.
std::string upToZero(const std::string& text) { return text.substr(0, text.find('\0')); }

// What a file opened as text makes of it.
std::string withLineEnds(const std::string& text) {
    std::string changed;
    changed.reserve(text.size() + 4);
    for (const char c : text) {
        if (c == '\n') {
            changed += VornPlatform::lineEnd();
        } else {
            changed += c;
        }
    }
    return changed;
}

// Of processes or descriptors, which others give back when they end.
bool isShortage(VornPlatform::OsError error) {
    const auto condition = error.condition();
    return condition == VornPlatform::OsCondition::WouldBlock ||
           condition == VornPlatform::OsCondition::TooManyOpen;
}

VornPlatform::OsError writeBatchFile(const std::string& file, const std::string& text) {
    VornPlatform::FreshFile batch;
    VornPlatform::OsError error = batch.create(file);
    const bool created = !error;
    if (!error) error = batch.write(text);
    if (!error) error = batch.close();
    if (!error) return {};
    batch.close();
    if (created) VornPlatform::removeFile(file);
    return error;
}

// A file that stays is no reason to lose the status of its run, or to begin none.
void removeBatchFile(const std::string& file) noexcept {
    try {
        VornPlatform::removeFile(file);
    } catch (const std::bad_alloc&) {
        VORN_LOG(3, "RuvoTSExecTask::runtaskonsystem: no memory to remove " << file);
    }
}

}  // namespace

RuvoTSExecTask::RuvoTSExecTask(const std::string& name, RuvoTSSeconds nextTime,
                               std::uint32_t frequency, const std::string& appName,
                               const std::string& path, const std::string& params,
                               const std::string& logFile)
    : RuvoTSTask(name, nextTime, frequency),
      appName_(appName),
      path_(path),
      params_(params),
      logFile_(logFile) {}

RuvoTSExecTask::~RuvoTSExecTask() = default;

std::string RuvoTSExecTask::serialize() const {
    return "exec " + escapeText(getName()) + ' ' + recordTime(getNextTime()) + ' ' +
           std::to_string(getFrequency()) + ' ' + escapeText(appName_) + ' ' + escapeText(path_) +
           ' ' + escapeText(params_) + ' ' + escapeText(logFile_);
}

int RuvoTSExecTask::performTask() {
    VORN_LOG(9, "RuvoTSExecTask::performTask enter"
                    << " HANDLE=" << getHandle() << "NAME=" << getName());
    const auto pause = [this] {
        return RuvoTSRuns::getInstance().pause(kPauseMs) && !isFinished();
    };
    if (!pause()) return 0;
    const auto thread = VornSupport::makeCounted<RuvoTSTaskThread>(getName());
    if (!pause()) return 0;
    VORN_LOG(9, "RuvoTSExecTask::performTask new thread "
                    << " THREADTHIS=" << static_cast<const void*>(thread.get())
                    << " NAME=" << getName());
    enlist(*thread);
    if (!pause()) {
        withdraw(*thread);
        return 0;
    }
    launch(*thread);
    pause();
    VORN_LOG(9, "RuvoTSExecTask::performTask exit ");
    return 0;
}

std::string RuvoTSExecTask::commandLine() const {
    std::string line = upToZero(appName_) + ' ' + upToZero(params_) + ' ';
    if (const auto log = upToZero(logFile_); !log.empty()) line += '>' + log + " 2>&1 \r\n";
    return line;
}

std::string RuvoTSExecTask::batchText() const {
    const std::string path = upToZero(path_);
    const std::string directory = path.empty() ? "" : "cd /d " + path;
    return withLineEnds(directory + '\n' + commandLine() + '\n');
}

std::optional<std::int32_t> RuvoTSExecTask::runtaskonsystem() {
    VORN_LOG(9, "RuvoTSTExecTask::runtaskonsystem enter");
    std::string file;
    VornPlatform::ProcessHandle process;
    std::optional<std::int32_t> status;
    try {
        file = RuvoTSStore::inTemporaryFolder(identity() + ".bat");
        status = startCommand(file, process);
    } catch (const std::bad_alloc&) {
        throw RuvoTSRefused(VornPlatform::OsError::noMemory());
    }
    if (process.isOpen()) {
        status = awaitEnd(process);
        if (!status) return {};  // the interpreter may still read the file
        removeBatchFile(file);
    }
    VORN_LOG(9, "RuvoTSExecTask::runtaskonsystem exit "
                    << " STATUS=" << *status);
    return status;
}

// The status of a command that cannot be started; else the process is open.
std::int32_t RuvoTSExecTask::startCommand(const std::string& file,
                                          VornPlatform::ProcessHandle& process) {
    VORN_LOG(9, "RuvoTSTaskThread::runtaskonsystem ready "
                    << " tempfile=" << file << " cmdline=" << VornPlatform::batchCommand(file));
    if (const auto error = writeBatchFile(file, batchText())) {
        if (isShortage(error)) throw RuvoTSRefused(error);
        VORN_LOG(2, "RuvoTSExecTask::runtaskonsystem: cannot write " << file << ": " << error);
        return kNoBatchFile;
    }
    VORN_LOG(9, "RuvoTSTaskThread::runtaskonsystem script "
                    << " cmdline=" << commandLine());
    VornPlatform::OsError error;
    try {
        error = VornPlatform::startBatch(file, process);
    } catch (...) {
        removeBatchFile(file);
        throw;
    }
    if (!error) return 0;
    removeBatchFile(file);
    if (isShortage(error)) throw RuvoTSRefused(error);
    VORN_LOG(2, "RuvoTSExecTask::runtaskonsystem: cannot start the command interpreter for "
                    << getName() << ": " << error);
    const bool missing = error.condition() == VornPlatform::OsCondition::NotFound;
    return missing ? kNoInterpreter : kNoProcess;
}

std::optional<std::int32_t> RuvoTSExecTask::awaitEnd(VornPlatform::ProcessHandle& process) {
    RuvoTSRuns& runs = RuvoTSRuns::getInstance();
    if (runs.isShort()) process.wait(momentMs);
    leavePlace(true);
    // A wait ends early when the service stops, or when the system fails it.
    for (int failures = 0; failures <= kMostWaitFailures; ++failures) {
        if (process.waitUnless(runs.stopSignal())) return process.exitCode();
        if (runs.pause(kPauseMs)) continue;
        VORN_LOG(3, "RuvoTSExecTask::runtaskonsystem: the service stops, the command of "
                        << getName() << " goes on");
        return {};
    }
    VORN_LOG(2, "RuvoTSExecTask::runtaskonsystem: cannot wait for the end of the command of "
                    << getName());
    return kNoProcess;
}

void RuvoTSExecTask::setMomentForTest(int ms) { momentMs = ms; }

}  // namespace RuvoService
