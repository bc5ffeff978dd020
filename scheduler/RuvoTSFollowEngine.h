#pragma once

#include "engines/RuvoEngineBase.h"
#include "engines/RuvoEngineFunctionHandler.h"
#include "runtime/platform/Export.h"

namespace RuvoService {

class RuvoTSEngine;

// The engine "SchedulerFollow": lets clients follow single tasks of the
// scheduler, to which it belongs. Apart from it, so that a service that does not
// load it shows no more commands than it always had.
class VORN_EXPORT RuvoTSFollowEngine : public RuvoEngineBase {
public:
    static constexpr const char* kName = "SchedulerFollow";

    // `scheduler` outlives this.
    explicit RuvoTSFollowEngine(RuvoTSEngine& scheduler);
    ~RuvoTSFollowEngine() override;

    RuvoTSEngine& getScheduler() const { return scheduler_; }

protected:
    bool initialize() override { return true; }
    bool cleanup() override { return true; }

private:
    RuvoTSEngine& scheduler_;
};

// Reads the client's remote name (string), its handle for this and the task's
// handle (int); answers 0, or -9 when there is no such task. From then on each
// change of the task's state is delivered: 12345, the state, the task's handle
// (int). After the state -1 nothing more comes.
class RUVO_TS_FOLLOW final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads the same; answers 0, after which that registration is told nothing
// more, or -9 when there is no such task. To follow nothing is no error.
class RUVO_TS_UNFOLLOW final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads a task's handle (int); answers 0 or -9 (int) and the exit status of its
// last run (int; -999 before the first one, 0 with -9). Knows the latest of the
// tasks that are gone as well: a follower of a task that runs once asks too late
// for RUVO_TS_EXIT_CODE.
class RUVO_TS_LAST_STATUS final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

}  // namespace RuvoService
