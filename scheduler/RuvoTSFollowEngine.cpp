#include "scheduler/RuvoTSFollowEngine.h"

#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSEngine.h"
#include "scheduler/RuvoTSTaskSet.h"

#include <cstdint>
#include <string>

namespace RuvoService {
namespace {

struct Registration {
    std::string remoteName;
    std::int32_t dependentHandle = 0;
    std::int32_t taskHandle = 0;

    static Registration read(VornNet::VornConnection& connection, const char* command) {
        Registration read;
        connection.readString(read.remoteName);
        read.dependentHandle = connection.readInt();
        read.taskHandle = connection.readInt();
        VORN_LOG(9, command << "::handleClient: "
                            << "|" << read.remoteName << ":" << read.dependentHandle << "|"
                            << " TASKHANDLE=" << read.taskHandle);
        return read;
    }
};

}  // namespace

RuvoTSFollowEngine::RuvoTSFollowEngine(RuvoTSEngine& scheduler)
    : RuvoEngineBase(kName), scheduler_(scheduler) {
    addCommand<RUVO_TS_FOLLOW>("RUVO_TS_FOLLOW");
    addCommand<RUVO_TS_UNFOLLOW>("RUVO_TS_UNFOLLOW");
    addCommand<RUVO_TS_LAST_STATUS>("RUVO_TS_LAST_STATUS");
}

RuvoTSFollowEngine::~RuvoTSFollowEngine() { retire(); }

void RUVO_TS_FOLLOW::handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_TS_FOLLOW::handleClient: enter");
    RuvoTSEngine& scheduler = as<RuvoTSFollowEngine>(engine).getScheduler();
    const Registration which = Registration::read(connection, "RUVO_TS_FOLLOW");
    connection.writeInt(
        scheduler.follow(which.remoteName, which.dependentHandle, which.taskHandle));
    VORN_LOG(9, "RUVO_TS_FOLLOW::handleClient: exit");
}

void RUVO_TS_UNFOLLOW::handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_TS_UNFOLLOW::handleClient: enter");
    RuvoTSEngine& scheduler = as<RuvoTSFollowEngine>(engine).getScheduler();
    const Registration which = Registration::read(connection, "RUVO_TS_UNFOLLOW");
    connection.writeInt(
        scheduler.unfollow(which.remoteName, which.dependentHandle, which.taskHandle));
    VORN_LOG(9, "RUVO_TS_UNFOLLOW::handleClient: exit");
}

void RUVO_TS_LAST_STATUS::handleClient(VornNet::VornConnection& connection,
                                       RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_TS_LAST_STATUS::handleClient: enter");
    as<RuvoTSFollowEngine>(engine);
    const std::int32_t handle = connection.readInt();
    const auto status = RuvoTSTaskSet::getInstance().lastStatus(handle);
    VORN_LOG(9, "RUVO_TS_LAST_STATUS::handleClient: "
                    << "TASKHANDLE=" << handle << " STATUS=" << status.value_or(0));
    connection.writeInt(status ? 0 : RuvoTSEngine::kNotFound);
    connection.writeInt(status.value_or(0));
    VORN_LOG(9, "RUVO_TS_LAST_STATUS::handleClient: exit");
}

}  // namespace RuvoService
