#include "scheduler/RuvoTSEngine.h"

#include "notifier/RuvoNNEngine.h"
#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/platform/BatchCommand.h"
#include "runtime/platform/ModuleFolder.h"
#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSBlobTask.h"
#include "scheduler/RuvoTSExecTask.h"
#include "scheduler/RuvoTSFollowEngine.h"
#include "scheduler/RuvoTSNotifier.h"
#include "scheduler/RuvoTSQueryCommands.h"
#include "scheduler/RuvoTSRecord.h"
#include "scheduler/RuvoTSRuns.h"
#include "scheduler/RuvoTSScheduleCommands.h"
#include "scheduler/RuvoTSStore.h"
#include "scheduler/RuvoTSTaskDependent.h"
#include "scheduler/RuvoTSTaskSet.h"
#include "scheduler/RuvoTSTime.h"

#include <exception>
#include <memory>
#include <string_view>
#include <utility>

namespace RuvoService {
namespace {

using VornMonitor::VornEventMonitorManager;

// What cleanup() waits at most for the threads of runs. They end at once, unless
// they are about to deliver to a follower that does not read.
constexpr int kRunsMs = 5000;

const char addressInThisModule = 0;

RuvoTSTaskSet::Task taskOf(RuvoTSRecord record) {
    if (record.kind == RuvoTSRecord::Kind::Exec) {
        return RuvoTSTask::make<RuvoTSExecTask>(record.name, record.nextTime, record.frequency,
                                                record.appName, record.path, record.params,
                                                record.logFile);
    }
    return RuvoTSTask::make<RuvoTSBlobTask>(record.name, record.nextTime, record.frequency,
                                            std::move(record.blob));
}

}  // namespace

RuvoTSEngine::RuvoTSEngine(RuvoNNEngine* notifier)
    : RuvoEngineBase("Scheduler"), notifier_(notifier) {
    VORN_LOG(9, "RuvoTSEngine::construct"
                    << " THIS=" << static_cast<const void*>(this));
    addCommand<RUVO_TS_SCHEDULE>("RUVO_TS_SCHEDULE");
    addCommand<RUVO_TS_SCHEDULED_TASK_LOOKUP>("RUVO_TS_SCHEDULED_TASK_LOOKUP");
    addCommand<RUVO_TS_CANCEL>("RUVO_TS_CANCEL");
    addCommand<RUVO_TS_TASK_STATE>("RUVO_TS_TASK_STATE");
    addCommand<RUVO_TS_EXIT_CODE>("RUVO_TS_EXIT_CODE");
    addCommand<RUVO_TS_EXECUTION_INFO>("RUVO_TS_EXECUTION_INFO");
    addCommand<RUVO_TS_SCHEDULE_BLOB>("RUVO_TS_SCHEDULE_BLOB");
    addCommand<RUVO_TS_RETRIEVE_BLOB>("RUVO_TS_RETRIEVE_BLOB");
    addCommand<RUVO_TS_LIST_EXEC>("RUVO_TS_LIST_EXEC");
    addCommand<RUVO_TS_LIST_BLOB>("RUVO_TS_LIST_BLOB");
    addCommand<RUVO_TS_GET_NEXT_TIME>("RUVO_TS_GET_NEXT_TIME");
    RuvoTSTaskSet::getInstance();
    RuvoTSNotifier::getInstance().connect(notifier_);
    setUtcOffset(utcOffsetMinutes());
    hasInterpreter_ =
        VornPlatform::provideInterpreter(VornPlatform::folderOfModuleAt(&addressInThisModule));
    VornEventMonitorManager::getInstance().announce(
        RuvoTSFollowEngine::kName, [this] { return std::make_unique<RuvoTSFollowEngine>(*this); });
}

RuvoTSEngine::~RuvoTSEngine() {
    VORN_LOG(9, "RuvoTSEngine::destruct ");
    VornEventMonitorManager::getInstance().withdraw(RuvoTSFollowEngine::kName);
    retire();
    letGo();
}

bool RuvoTSEngine::initialize() {
    VORN_LOG(9, "RuvoTSEngine::initialize enter");
    if (!hasInterpreter_) {
        VORN_LOG(2, "RuvoTSEngine::initialize: there is no command interpreter (cmd): the commands "
                    "of tasks will end with status 127");
    }
    RuvoTSNotifier::getInstance().connect(notifier_);
    try {
        RuvoTSRuns::getInstance().open();
        RuvoTSTaskSet::getInstance().open(&recover);
    } catch (const std::exception& e) {
        // No task must run that no command finds.
        VORN_LOG(2, "RuvoTSEngine::initialize: exception: " << e.what());
        letGo();
        return false;
    }
    VORN_LOG(9, "RuvoTSEngine::initialize exit ");
    return true;
}

bool RuvoTSEngine::cleanup() {
    VORN_LOG(9, "RuvoTSEngine::cleanup");
    letGo();
    return true;
}

// False when there is a store that cannot be read.
bool RuvoTSEngine::recover() {
    const std::string file = RuvoTSStore::names().current;
    VORN_LOG(9, "RuvoTSEngine::recover task from file " << file);
    std::string reason;
    const bool readable = RuvoTSStore::read(
        file,
        [](std::string_view line) {
            RuvoTSRecord record = readRecord(line);
            if (record.kind == RuvoTSRecord::Kind::None) return;
            RuvoTSTaskSet::getInstance().insert(taskOf(std::move(record)), false);
        },
        reason);
    if (!readable) {
        VORN_LOG(2, "RuvoTSEngine::recover: " << file << ": " << reason
                                              << "; it is left as it is, and tasks that are "
                                                 "scheduled now end with the service");
    }
    return readable;
}

void RuvoTSEngine::letGo() {
    // While the set is still there: what the end of a run changes is in the store.
    const bool ended = RuvoTSRuns::getInstance().stop(kRunsMs);
    const auto tasks = RuvoTSTaskSet::getInstance().release();
    for (const auto& task : tasks) task->retire();
    if (!ended) {
        VORN_LOG(2, "RuvoTSEngine::cleanup: runs under way are left behind: "
                        << RuvoTSRuns::getInstance().count());
    }
    for (const auto& task : tasks) task->removeMyProxyDependents();
    RuvoTSNotifier::getInstance().connect(nullptr);
}

void RuvoTSEngine::waitForRoom(VornNet::VornConnection& connection) {
    if (notifier_ != nullptr) notifier_->waitForRoom(connection);
}

// ---- followers -------------------------------------------------------------------

std::int32_t RuvoTSEngine::follow(const std::string& remoteName, std::int32_t dependentHandle,
                                  std::int32_t taskHandle) {
    const auto task = RuvoTSTaskSet::getInstance().find(taskHandle);
    if (!task) return kNotFound;
    const auto follower =
        VornSupport::makeCounted<RuvoTSTaskDependent>(remoteName, dependentHandle, *task);
    return task->follow(follower) ? 0 : kNotFound;
}

std::int32_t RuvoTSEngine::unfollow(const std::string& remoteName, std::int32_t dependentHandle,
                                    std::int32_t taskHandle) {
    const auto task = RuvoTSTaskSet::getInstance().find(taskHandle);
    if (!task) return kNotFound;
    task->unfollow(remoteName, dependentHandle);
    return 0;
}

}  // namespace RuvoService
