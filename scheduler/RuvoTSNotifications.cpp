#include "scheduler/RuvoTSNotifications.h"

#include "scheduler/RuvoTSTask.h"

#include <utility>

namespace RuvoService {

RuvoTSTimerNotification::~RuvoTSTimerNotification() = default;

RuvoTSThreadDone::RuvoTSThreadDone(VornSupport::VornSmartPointer<RuvoTSTask> task,
                                   std::int32_t exitStatus)
    : task_(std::move(task)), exitStatus_(exitStatus) {}

RuvoTSThreadDone::~RuvoTSThreadDone() = default;

RuvoTSTaskNotification::~RuvoTSTaskNotification() = default;

}  // namespace RuvoService
