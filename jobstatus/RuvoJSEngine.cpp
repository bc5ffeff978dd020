#include "jobstatus/RuvoJSEngine.h"

#include "jobstatus/RuvoJSCommands.h"
#include "notifier/RuvoNNEngine.h"
#include "runtime/support/VornLogging.h"

#include <utility>

namespace RuvoService {

using VornSupport::VornMutexLock;

// ---- the job ---------------------------------------------------------------------

RuvoJSEngine::VornJSEJob::VornJSEJob(const std::string& description, const std::string& name,
                                     std::int32_t id, RuvoNNEngine* notifier)
    : description_(description), name_(name), notifier_(notifier) {
    setID(id);
}

RuvoJSEngine::VornJSEJob::~VornJSEJob() = default;

void RuvoJSEngine::VornJSEJob::setID(std::int32_t id) {
    VORN_LOG(9, "RuvoJSEngine::VornJSEJob::setID(" << name_ << "): enter, jobid=" << id);
    id_ = id;
    announce(Created);
    VORN_LOG(9, "RuvoJSEngine::VornJSEJob::setID(" << name_ << "): exit");
}

void RuvoJSEngine::VornJSEJob::setProgress(std::int32_t progress) {
    VORN_LOG(9, "RuvoJSEngine::VornJSEJob::setProgress(" << name_
                                                         << "): enter, progress=" << progress);
    progress_ = progress;
    announce(Progressed);
    VORN_LOG(9, "RuvoJSEngine::VornJSEJob::setProgress(" << name_ << "): exit");
}

void RuvoJSEngine::VornJSEJob::cancel() {
    VORN_LOG(9, "RuvoJSEngine::VornJSEJob::cancel(" << name_ << "): enter");
    announce(Cancelled);
    VORN_LOG(9, "RuvoJSEngine::VornJSEJob::cancel(" << name_ << "): exit");
}

void RuvoJSEngine::VornJSEJob::complete() {
    VORN_LOG(9, "RuvoJSEngine::VornJSEJob::complete(" << name_ << "): enter");
    announce(Completed);
    VORN_LOG(9, "RuvoJSEngine::VornJSEJob::complete(" << name_ << "): exit");
}

void RuvoJSEngine::VornJSEJob::announce(EventCode code) {
    eventCode_ = code;
    if (notifier_ == nullptr) return;
    notifier_->produce(VornSupport::makeCounted<RuvoNNEventNotification>(
        "udp:127.0.0.1", "VornJSEvent:" + name_, name_,
        static_cast<std::int32_t>(sizeof eventCode_),
        reinterpret_cast<const char*>(&eventCode_)));
}

// ---- the engine ------------------------------------------------------------------

RuvoJSEngine::RuvoJSEngine(RuvoNNEngine* notifier)
    : RuvoEngineBase("JobStatus"), notifier_(notifier) {
    addCommand<RUVO_JS_CREATE>("RUVO_JS_CREATE");
    addCommand<RUVO_JS_MAP_JOB>("RUVO_JS_MAP_JOB");
    addCommand<RUVO_JS_LOOKUP>("RUVO_JS_LOOKUP");
    addCommand<RUVO_JS_DELETE>("RUVO_JS_DELETE");
    addCommand<RUVO_JS_SET_PROGRESS>("RUVO_JS_SET_PROGRESS");
    addCommand<RUVO_JS_GET_PROGRESS>("RUVO_JS_GET_PROGRESS");
    addCommand<RUVO_JS_GET_ALL_PROGRESS>("RUVO_JS_GET_ALL_PROGRESS");
    addCommand<RUVO_JS_CANCEL>("RUVO_JS_CANCEL");
}

RuvoJSEngine::~RuvoJSEngine() { retire(); }

bool RuvoJSEngine::initialize() { return true; }
bool RuvoJSEngine::cleanup() { return true; }

RuvoJSEngine::Job RuvoJSEngine::findLocked(std::int32_t id) const {
    const auto found = jobs_.find(id);
    return found == jobs_.end() ? nullptr : found->second;
}

// In place of a job that has the id already: only 10000 is given out twice.
void RuvoJSEngine::storeLocked(const Job& job) {
    if (const Job replaced = findLocked(job->getID())) byName_.erase(replaced->getName());
    byName_[job->getName()] = job->getID();
    jobs_[job->getID()] = job;
    ids_.take(job->getID());
}

void RuvoJSEngine::waitForRoom(VornNet::VornConnection& connection) {
    if (notifier_ != nullptr) notifier_->waitForRoom(connection);
}

std::int32_t RuvoJSEngine::createJob(const std::string& description, const std::string& name) {
    VornMutexLock lock(mutex_);
    if (byName_.contains(name)) return kNoSuchJob;
    const std::int32_t id = ids_.next(jobs_.size());
    if (id == RuvoJSIds::kNone) return id;
    storeLocked(VornSupport::makeCounted<VornJSEJob>(description, name, id, notifier_));
    return id;
}

std::int32_t RuvoJSEngine::mapJob(std::int32_t id, std::vector<std::int32_t> ids) {
    VornMutexLock lock(mutex_);
    const Job job = findLocked(id);
    if (!job) return kNoSuchJob;
    job->setMappedIds(std::move(ids));
    return id;
}

std::int32_t RuvoJSEngine::lookupJob(const std::string& name) const {
    VornMutexLock lock(mutex_);
    const auto found = byName_.find(name);
    return found == byName_.end() ? kNoSuchJob : found->second;
}

std::int32_t RuvoJSEngine::deleteJob(std::int32_t id) {
    VornMutexLock lock(mutex_);
    const Job job = findLocked(id);
    if (!job) return kNoSuchJob;
    job->complete();
    byName_.erase(job->getName());
    jobs_.erase(id);
    ids_.release(id);
    return id;
}

std::int32_t RuvoJSEngine::setProgress(std::int32_t id, std::int32_t progress) {
    VornMutexLock lock(mutex_);
    const Job job = findLocked(id);
    if (!job) return kNoSuchJob;
    job->setProgress(progress);
    return id;
}

std::int32_t RuvoJSEngine::getProgress(std::int32_t id) const {
    VornMutexLock lock(mutex_);
    const Job job = findLocked(id);
    return job ? job->getProgress() : 0;
}

std::int32_t RuvoJSEngine::cancelJob(std::int32_t id) {
    VornMutexLock lock(mutex_);
    const Job job = findLocked(id);
    if (!job) return kNoSuchJob;
    job->cancel();
    return id;
}

std::vector<std::int32_t> RuvoJSEngine::getMappedIds(std::int32_t id) const {
    VornMutexLock lock(mutex_);
    const Job job = findLocked(id);
    return job ? job->getMappedIds() : std::vector<std::int32_t>();
}

std::size_t RuvoJSEngine::size() const {
    VornMutexLock lock(mutex_);
    return jobs_.size();
}

}  // namespace RuvoService
