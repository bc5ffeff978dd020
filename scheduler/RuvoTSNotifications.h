#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornNotification.h"
#include "runtime/support/VornSmartPointer.h"

#include <cstdint>

namespace RuvoService {

class RuvoTSTask;

// Receivers tell these apart by their class names.

// A task's time has come. Sent by its timer.
class VORN_EXPORT RuvoTSTimerNotification final : public VornSupport::VornNotification {
public:
    ~RuvoTSTimerNotification() override;
};

// A run is over. Sent by its thread.
class VORN_EXPORT RuvoTSThreadDone final : public VornSupport::VornNotification {
public:
    RuvoTSThreadDone(VornSupport::VornSmartPointer<RuvoTSTask> task, std::int32_t exitStatus);
    ~RuvoTSThreadDone() override;

    RuvoTSTask& getTask() const { return *task_; }
    std::int32_t getExitStatus() const { return exitStatus_; }

private:
    const VornSupport::VornSmartPointer<RuvoTSTask> task_;
    const std::int32_t exitStatus_;
};

// The state of a task has changed. Sent by the task.
class VORN_EXPORT RuvoTSTaskNotification final : public VornSupport::VornNotification {
public:
    // `change` counts the changes of one task, so that who is told of two by
    // two threads knows which is the later one.
    RuvoTSTaskNotification(std::int32_t handle, std::int32_t state, std::int32_t status,
                           std::uint32_t change)
        : handle_(handle), state_(state), status_(status), change_(change) {}
    ~RuvoTSTaskNotification() override;

    std::int32_t getHandle() const { return handle_; }
    std::int32_t getState() const { return state_; }
    std::int32_t getStatus() const { return status_; }
    std::uint32_t getChange() const { return change_; }

private:
    const std::int32_t handle_;
    const std::int32_t state_;
    const std::int32_t status_;
    const std::uint32_t change_;
};

}  // namespace RuvoService
