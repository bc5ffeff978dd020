#include "scheduler/RuvoTSScheduleCommands.h"

#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSBlobTask.h"
#include "scheduler/RuvoTSEngine.h"
#include "scheduler/RuvoTSExecTask.h"
#include "scheduler/RuvoTSTaskSet.h"

#include <cstdint>
#include <string>
#include <utility>

namespace RuvoService {
namespace {

using VornNet::VornConnection;

// Frequency and time of a new task, in the order in which they are sent.
struct When {
    std::uint32_t frequency;
    int month, day, year, hour, minute, second;

    // `next` reads one number of 32 bits.
    template <class Next>
    static When read(Next next) {
        When when{};
        when.frequency = static_cast<std::uint32_t>(next());
        for (int* field : {&when.month, &when.day, &when.year, &when.hour, &when.minute,
                           &when.second}) {
            *field = static_cast<int>(next());
        }
        return when;
    }
    RuvoTSSeconds time() const { return makeTime(year, month, day, hour, minute, second); }
};

VornSupport::VornLogging& operator<<(VornSupport::VornLogging& log, const When& when) {
    return log << " FREQ=" << when.frequency << " MONTH=" << when.month << " DAY=" << when.day
               << " YR=" << when.year << " HR=" << when.hour << " MIN=" << when.minute
               << " SEC=" << when.second;
}

}  // namespace

void RUVO_TS_SCHEDULE::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_TS_SCHEDULE::handleClient: enter");
    as<RuvoTSEngine>(engine).waitForRoom(connection);
    std::string name;
    std::string appName;
    std::string path;
    std::string params;
    std::string logFile;
    connection.readString(name);
    connection.readString(appName);
    connection.readString(path);
    connection.readString(params);
    const When when = When::read([&] { return connection.readInt(); });
    connection.readString(logFile);
    VORN_LOG(9, "RUVO_TS_SCHEDULE::handleClient: "
                    << " TASKNAME=" << name << " APPNAME=" << appName << " PATH=" << path
                    << " PARAMS=" << params << when << " LOGFILE=" << logFile);

    const auto task = RuvoTSTaskSet::getInstance().schedule(name, [&] {
        return RuvoTSTask::make<RuvoTSExecTask>(name, when.time(), when.frequency, appName, path,
                                                params, logFile);
    });
    if (!task) {
        connection.writeInt(RuvoTSEngine::kNameTaken);
        VORN_LOG(3, "RUVO_TS_SCHEDULE::handleClient: SCHEDULE EXEC ERROR"
                        << " name not unique "
                        << "NAME=" << name);
    } else {
        connection.writeInt(task->getHandle());
        VORN_LOG(4, "RUVO_TS_SCHEDULE::handleClient: SCHEDULE DONE"
                        << " handle returned "
                        << "HANDLE=" << task->getHandle());
    }
    VORN_LOG(9, "RUVO_TS_SCHEDULE::handleClient: exit");
}

void RUVO_TS_SCHEDULE_BLOB::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_TS_SCHEDULE_BLOB::handleClient: enter");
    as<RuvoTSEngine>(engine).waitForRoom(connection);
    std::string name;
    connection.readString(name);
    const std::int32_t length = connection.readInt();
    std::string blob = VornNet::readBlock(connection, length, "RUVO_TS_SCHEDULE_BLOB");
    const When when = When::read([&] { return connection.readUnsigned(); });
    VORN_LOG(9, "RUVO_TS_SCHEDULE_BLOB::handleClient: "
                    << " TASKNAME=" << name << when);
    // What arrives is what was declared, or the read has thrown.
    VORN_LOG(9, "RUVO_TS_SCHEDULE_BLOB::handleClient: ScheduleBlob2"
                    << " NLENBLOB=" << length << " NLENRECVD=" << blob.size()
                    << " ERRORCODE=" << 0);

    const auto task = RuvoTSTaskSet::getInstance().schedule(name, [&] {
        return RuvoTSTask::make<RuvoTSBlobTask>(name, when.time(), when.frequency,
                                                std::move(blob));
    });
    if (!task) {
        connection.writeInt(RuvoTSEngine::kNameTaken);
        VORN_LOG(3, "RUVO_TS_SCHEDULE_BLOB::handleClient: SCHEDULE BLOB ERROR"
                        << " name not unique "
                        << "NAME=" << name);
    } else {
        connection.writeInt(task->getHandle());
        VORN_LOG(4, "RUVO_TS_SCHEDULE_BLOB::handleClient: SCHEDULE DONE"
                        << " handle returned "
                        << "HANDLE=" << task->getHandle());
    }
    VORN_LOG(9, "RUVO_TS_SCHEDULE_BLOB::handleClient: exit");
}

void RUVO_TS_CANCEL::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_TS_CANCEL::handleClient: enter");
    as<RuvoTSEngine>(engine).waitForRoom(connection);
    const auto handle = static_cast<std::int32_t>(connection.readUnsigned());
    VORN_LOG(9, "RUVO_TS_CANCEL::handleClient: "
                    << "TASKHANDLE=" << handle);
    const auto task = RuvoTSTaskSet::getInstance().find(handle);
    // Of two that cancel at once, or a task that is just over, one only does it.
    if (task && task->finish()) {
        task->removeMyProxyDependents();
        RuvoTSTaskSet::getInstance().remove(handle);
        connection.writeInt(handle);
        VORN_LOG(4, "RUVO_TS_CANCEL::handleClient: SCHEDULE DONE"
                        << " handle returned "
                        << "HANDLE=" << handle);
    } else {
        connection.writeInt(RuvoTSEngine::kNotFound);
        VORN_LOG(3, "RUVO_TS_CANCEL::handleClient: CANCEL ERROR"
                        << " handle not found "
                        << "TASKHANDLE=" << handle);
    }
    VORN_LOG(9, "RUVO_TS_CANCEL::handleClient: exit");
}

}  // namespace RuvoService
