#include "scheduler/RuvoTSQueryCommands.h"

#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSBlobTask.h"
#include "scheduler/RuvoTSEngine.h"
#include "scheduler/RuvoTSTaskSet.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace RuvoService {
namespace {

using Task = RuvoTSTaskSet::Task;
using VornNet::VornConnection;

constexpr std::string_view kExec = "RuvoTSExecTask";
constexpr std::string_view kBlob = "RuvoTSBlobTask";

// The task of a handle, if it is one of the kind.
Task findOfKind(std::int32_t handle, std::string_view type) {
    Task task = RuvoTSTaskSet::getInstance().find(handle);
    return task && task->isKind(type) ? task : nullptr;
}

void logNotFound(const char* what, std::int32_t handle) {
    VORN_LOG(3, what << " handle not found "
                     << "TASKHANDLE=" << handle);
}

}  // namespace

void RUVO_TS_SCHEDULED_TASK_LOOKUP::handleClient(VornConnection& connection,
                                                 RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_TS_SCHEDULED_TASK_LOOKUP::handleClient: enter");
    as<RuvoTSEngine>(engine);
    std::string name;
    connection.readString(name);
    VORN_LOG(9, "RUVO_TS_SCHEDULED_TASK_LOOKUP::handleClient: "
                    << "NAME=" << name);
    const Task task = RuvoTSTaskSet::getInstance().find(std::string_view(name));
    connection.writeInt(task ? task->getHandle() : RuvoTSEngine::kNotFound);
    if (task) {
        VORN_LOG(9, "RUVO_TS_SCHEDULED_TASK_LOOKUP::handleClient: SCHEDULE DONE"
                        << " handle returned "
                        << "HANDLE=" << task->getHandle());
    } else {
        VORN_LOG(3, "RUVO_TS_SCHEDULED_TASK_LOOKUP::handleClient: SCHEDULE ERROR"
                        << " name not found "
                        << "NAME=" << name);
    }
    VORN_LOG(9, "RUVO_TS_SCHEDULED_TASK_LOOKUP::handleClient: exit");
}

void RUVO_TS_TASK_STATE::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_TS_TASK_STATE::handleClient: enter");
    as<RuvoTSEngine>(engine);
    const auto handle = static_cast<std::int32_t>(connection.readUnsigned());
    VORN_LOG(9, "RUVO_TS_TASK_STATE::handleClient: "
                    << "TASKHANDLE=" << handle);
    const Task task = RuvoTSTaskSet::getInstance().find(handle);
    connection.writeInt(task ? task->getState() : RuvoTSEngine::kNotFound);
    if (!task) logNotFound("RUVO_TS_TASK_STATE::handleClient: GETSTATE ERROR", handle);
    VORN_LOG(9, "RUVO_TS_TASK_STATE::handleClient: exit");
}

void RUVO_TS_EXIT_CODE::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_TS_EXIT_CODE::handleClient: enter");
    as<RuvoTSEngine>(engine);
    const auto handle = static_cast<std::int32_t>(connection.readUnsigned());
    VORN_LOG(9, "RUVO_TS_EXIT_CODE::handleClient: "
                    << "TASKHANDLE=" << handle);
    const Task task = findOfKind(handle, kExec);
    connection.writeInt(task ? task->getStatus() : RuvoTSEngine::kNotFound);
    if (!task) logNotFound("RUVO_TS_EXIT_CODE::handleClient: GETEXITCODE ERROR", handle);
    VORN_LOG(9, "RUVO_TS_EXIT_CODE::handleClient: exit");
}

void RUVO_TS_EXECUTION_INFO::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_TS_EXECUTION_INFO::handleClient: enter");
    as<RuvoTSEngine>(engine);
    const std::int32_t handle = connection.readInt();
    std::int32_t size = connection.readInt();
    VORN_LOG(9, "RUVO_TS_EXECUTION_INFO::handleClient: "
                    << "TASKHANDLE=" << handle << " SIZE=" << size);
    const Task task = findOfKind(handle, kExec);
    if (task) {
        std::string text;
        const std::size_t length = formatDisplayTime(task->getLastRunTime(), text, size);
        connection.writeString(text);
        connection.writeInt(length != 0 ? static_cast<std::int32_t>(length) : size);
    } else {
        connection.writeString("");
        connection.writeInt(RuvoTSEngine::kNotFound);
        logNotFound("RUVO_TS_EXECUTION_INFO::handleClient: GETEXECINFO ERROR", handle);
    }
    VORN_LOG(9, "RUVO_TS_EXECUTION_INFO::handleClient: exit");
}

void RUVO_TS_RETRIEVE_BLOB::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_TS_RETRIEVE_BLOB::handleClient: enter");
    as<RuvoTSEngine>(engine);
    const std::int32_t handle = connection.readInt();
    VORN_LOG(9, "RUVO_TS_RETRIEVE_BLOB::handleClient: "
                    << "TASKHANDLE=" << handle);
    int written = 0;
    if (const Task task = findOfKind(handle, kBlob)) {
        const std::string& blob = static_cast<const RuvoTSBlobTask&>(*task).getBlob();
        const auto length = static_cast<int>(blob.size());
        connection.writeInt(0);
        connection.writeInt(length);
        connection.write(blob.data(), length, written);
        VORN_LOG(9, "RUVO_TS_RETRIEVE_BLOB::handleClient: RETRIEVE SUCCESS"
                        << " NBLOBLEN=" << length);
    } else {
        connection.writeInt(RuvoTSEngine::kNotFound);
        connection.writeInt(0);
        connection.write("xyzzy", 0, written);
        logNotFound("RUVO_TS_RETRIEVE_BLOB::handleClient: RETRIEVE ERROR", handle);
    }
    VORN_LOG(9, "RUVO_TS_RETRIEVE_BLOB::handleClient: exit");
}

void RUVO_TS_LIST_EXEC::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_TS_LIST_EXEC::handleClient: enter");
    as<RuvoTSEngine>(engine);
    const std::string names = RuvoTSTaskSet::getInstance().getTaskNames(kExec);
    connection.writeInt(0);
    connection.writeString(names);
    VORN_LOG(9, "RUVO_TS_LIST_EXEC::handleClient: LISTEXEC SUCCESS"
                    << " NLISTLEN=" << names.size() << " LIST="
                    << "|" << names << "|");
    VORN_LOG(9, "RUVO_TS_LIST_EXEC::handleClient: exit");
}

void RUVO_TS_LIST_BLOB::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_TS_LIST_BLOB::handleClient: enter");
    as<RuvoTSEngine>(engine);
    const std::string names = RuvoTSTaskSet::getInstance().getTaskNames(kBlob);
    connection.writeInt(0);
    connection.writeString(names);
    VORN_LOG(9, "RUVO_TS_LIST_BLOB::handleClient: LISTBLOB SUCCESS"
                    << " NLISTLEN=" << names.size() << " LIST="
                    << "|" << names << "|");
    VORN_LOG(9, "RUVO_TS_LIST_BLOB::handleClient: exit");
}

void RUVO_TS_GET_NEXT_TIME::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_TS_GET_NEXT_TIME::handleClient: enter");
    as<RuvoTSEngine>(engine);
    const std::int32_t handle = connection.readInt();
    VORN_LOG(9, "RUVO_TS_GET_NEXT_TIME::handleClient: "
                    << "TASKHANDLE=" << handle);
    if (const Task task = RuvoTSTaskSet::getInstance().find(handle)) {
        const std::string time = recordTime(task->getNextTime());
        connection.writeInt(0);
        connection.writeString(time);
        connection.writeInt3(static_cast<std::int32_t>(task->getFrequency()));
        VORN_LOG(9, "RUVO_TS_GET_NEXT_TIME::handleClient: GETNEXTTIME SUCCESS"
                        << " NLISTLEN=" << time.size() << " TIME=" << time);
    } else {
        connection.writeInt(RuvoTSEngine::kNotFound);
        connection.writeString("task_not_scheduled");
        connection.writeInt3(0);
        logNotFound("RUVO_TS_GET_NEXT_TIME::handleClient: GETNEXTTIME ERROR", handle);
    }
    VORN_LOG(9, "RUVO_TS_GET_NEXT_TIME::handleClient: exit");
}

}  // namespace RuvoService
