#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornSmartPointer.h"
#include "runtime/support/VornThread.h"
#include "scheduler/RuvoTSRuns.h"

#include <cstdint>
#include <optional>
#include <string>

namespace RuvoService {

class RuvoTSTask;

// The thread of one run of a task: passes the task through its states, has it
// do its work in between, and tells it (RuvoTSThreadDone) when that is over.
// Holds the task while it runs; the task points back until it has been told.
class VORN_EXPORT RuvoTSTaskThread final : public VornSupport::VornThread {
public:
    // For a task with a command; the name is the task's.
    explicit RuvoTSTaskThread(const std::string& name);
    // For a task without one.
    RuvoTSTaskThread();
    ~RuvoTSTaskThread() override;

    // Before start(). The run counts as under way from here on; null ends that.
    void setTask(VornSupport::VornSmartPointer<RuvoTSTask> task);

    // Called by each run after its pause, before it begins; null: nothing.
    static void setBeforeRunForTest(void (*hook)(RuvoTSTask&));

protected:
    // Returns the exit status. Does nothing for a task that has been finished
    // before its turn, and ends early when the service stops.
    int run() override;

private:
    RuvoTSTaskThread(const std::string& name, std::int32_t exitCode);
    std::optional<std::int32_t> runtaskonsystem(RuvoTSTask& task);
    bool runTask(RuvoTSTask& task);

    std::int32_t exitCode_;
    VornSupport::VornSmartPointer<RuvoTSTask> task_;
    RuvoTSRuns::Token underWay_;
};

}  // namespace RuvoService
