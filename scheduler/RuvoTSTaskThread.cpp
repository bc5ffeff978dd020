#include "scheduler/RuvoTSTaskThread.h"

#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSExecTask.h"
#include "scheduler/RuvoTSNotifications.h"
#include "scheduler/RuvoTSTask.h"

#include <atomic>
#include <exception>
#include <utility>

namespace RuvoService {
namespace {

constexpr int kPauseMs = 100;

std::atomic<void (*)(RuvoTSTask&)> beforeRun{nullptr};

}  // namespace

RuvoTSTaskThread::RuvoTSTaskThread(const std::string& name, std::int32_t exitCode)
    : VornThread(name), exitCode_(exitCode) {
    setStackSize(kClientStack);
}

RuvoTSTaskThread::RuvoTSTaskThread(const std::string& name)
    : RuvoTSTaskThread(name, RuvoTSExecTask::kNoBatchFile) {}
RuvoTSTaskThread::RuvoTSTaskThread()
    : RuvoTSTaskThread("RuvoTSTaskThread", RuvoTSTask::kNeverRun) {}

RuvoTSTaskThread::~RuvoTSTaskThread() = default;

void RuvoTSTaskThread::setTask(VornSupport::VornSmartPointer<RuvoTSTask> task) {
    underWay_ = task ? RuvoTSRuns::getInstance().begin() : RuvoTSRuns::Token();
    task_ = std::move(task);
}

void RuvoTSTaskThread::setBeforeRunForTest(void (*hook)(RuvoTSTask&)) { beforeRun = hook; }

int RuvoTSTaskThread::run() {
    VORN_LOG(9, "RuvoTSTaskThread::run ");
    const RuvoTSRuns::Token underWay = std::exchange(underWay_, RuvoTSRuns::Token());
    const auto task = std::exchange(task_, nullptr);
    if (!underWay) {
        task->leavePlace(false);
    } else if (runTask(*task)) {
        RuvoTSThreadDone done(task, exitCode_);
        try {
            notify(done);
        } catch (const std::exception& e) {
            // It was not even told: what the task does then never throws.
            VORN_LOG(2, "RuvoTSTaskThread::run: exception: " << e.what());
            task->handleNotification(*this, done);
        }
    }
    removeDependent(*task);  // unless it has done so itself
    VORN_LOG(9, "RuvoTSTaskThread::run exit ");
    return exitCode_;
}

// False when the run did not come to its end. The place is left before anything
// that may give the task its next one.
bool RuvoTSTaskThread::runTask(RuvoTSTask& task) {
    try {
        if (!RuvoTSRuns::getInstance().pause(kPauseMs)) {
            task.leavePlace(false);
            return false;
        }
    } catch (const std::exception& e) {
        VORN_LOG(2, "RuvoTSTaskThread::run: " << task.getName() << ": " << e.what());
        task.leavePlace(false);
        task.retryRun();
        return false;
    }
    if (const auto hook = beforeRun.load()) hook(task);
    // Looking first and beginning then would let a cancel in between.
    if (!task.beginRun()) {
        task.leavePlace(true);
        return false;
    }
    bool ended = true;
    try {
        const auto status = runtaskonsystem(task);
        ended = status.has_value();
        exitCode_ = status.value_or(exitCode_);
    } catch (const RuvoTSRefused& e) {
        task.postponeRun(e.error());
        return false;
    } catch (const std::exception& e) {
        // Out of memory, say. The task gets its next turn all the same.
        VORN_LOG(2, "RuvoTSTaskThread::run: " << task.getName() << ": " << e.what());
    }
    task.leavePlace(ended);
    if (ended) task.setState(RuvoTSTask::Ended, exitCode_);
    return ended;
}

std::optional<std::int32_t> RuvoTSTaskThread::runtaskonsystem(RuvoTSTask& task) {
    VORN_LOG(9, "RuvoTSTaskThread::runtaskonsystem enter");
    const auto status = task.runtaskonsystem();
    VORN_LOG(9, "RuvoTSTaskThread::runtaskonsystem exit "
                    << " STATUS=" << status.value_or(exitCode_));
    return status;
}

}  // namespace RuvoService
