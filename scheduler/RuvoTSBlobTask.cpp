#include "scheduler/RuvoTSBlobTask.h"

#include "runtime/support/VornHex.h"
#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSEscape.h"
#include "scheduler/RuvoTSRecord.h"
#include "scheduler/RuvoTSTaskThread.h"

#include <utility>

namespace RuvoService {

RuvoTSBlobTask::RuvoTSBlobTask(const std::string& name, RuvoTSSeconds nextTime,
                               std::uint32_t frequency, std::string blob)
    : RuvoTSTask(name, nextTime, frequency),
      blob_(std::move(blob)),
      fileName_(identity() + ".blb") {}

RuvoTSBlobTask::~RuvoTSBlobTask() = default;

std::string RuvoTSBlobTask::serialize() const {
    const std::string data = VornSupport::VornBytesToHex(blob_.data(), blob_.size());
    return "blob " + escapeText(getName()) + ' ' + recordTime(getNextTime()) + ' ' +
           std::to_string(getFrequency()) + ' ' + fileName_ + ' ' + std::to_string(blob_.size()) +
           ' ' + checksumOf(data) + ' ' + data;
}

int RuvoTSBlobTask::performTask() {
    VORN_LOG(9, "RuvoTSBlobTask::performTask ");
    const auto thread = VornSupport::makeCounted<RuvoTSTaskThread>();
    enlist(*thread);
    launch(*thread);
    VORN_LOG(9, "RuvoTSBlobTask::performTask exit ");
    return 0;
}

std::optional<std::int32_t> RuvoTSBlobTask::runtaskonsystem() {
    VORN_LOG(9, "RuvoTSTBlobTask::runtaskonsystem enter");
    VORN_LOG(9, "RuvoTSBlobTask::runtaskonsystem exit "
                    << " STATUS=" << 0);
    return 0;
}

}  // namespace RuvoService
