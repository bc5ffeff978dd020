#include "client/RuvoJobs.h"

#include <limits>
#include <string>

namespace Ruvo {
namespace {

constexpr std::string_view kMonitor = "JobStatus";

}  // namespace

RuvoRequest RuvoJobs::createRequest(std::string_view name, std::string_view description) {
    RuvoRequest request(kMonitor, "RUVO_JS_CREATE");
    request.addString(description).addString(name);  // in this order
    return request;
}

RuvoRequest RuvoJobs::mapRequest(std::int32_t id, std::span<const std::int32_t> numbers) {
    if (numbers.size() > std::numeric_limits<std::int32_t>::max()) {
        throw RuvoClientError(RuvoProblem::Argument, "too many numbers");
    }
    RuvoRequest request(kMonitor, "RUVO_JS_MAP_JOB");
    request.addInt(id).addInt(static_cast<std::int32_t>(numbers.size()));
    for (const std::int32_t number : numbers) request.addInt(number);
    return request;
}

RuvoRequest RuvoJobs::lookupRequest(std::string_view name) {
    return RuvoRequest(kMonitor, "RUVO_JS_LOOKUP").addString(name);
}

RuvoRequest RuvoJobs::removeRequest(std::int32_t id) {
    return RuvoRequest(kMonitor, "RUVO_JS_DELETE").addInt(id);
}

RuvoRequest RuvoJobs::setProgressRequest(std::int32_t id, std::int32_t progress) {
    return RuvoRequest(kMonitor, "RUVO_JS_SET_PROGRESS").addInt(id).addInt(progress);
}

RuvoRequest RuvoJobs::getProgressRequest(std::int32_t id) {
    return RuvoRequest(kMonitor, "RUVO_JS_GET_PROGRESS").addInt(id);
}

RuvoRequest RuvoJobs::cancelRequest(std::int32_t id) {
    return RuvoRequest(kMonitor, "RUVO_JS_CANCEL").addInt(id);
}

RuvoRequest RuvoJobs::allProgressRequest() {
    return RuvoRequest(kMonitor, "RUVO_JS_GET_ALL_PROGRESS", RuvoRequest::Answer::None);
}

std::int32_t RuvoJobs::create(std::string_view name, std::string_view description) {
    const std::int32_t id = client_.call(createRequest(name, description));
    if (id < 0) {
        throw RuvoClientError(RuvoProblem::Declined,
                              "there is a job named \"" + std::string(name) + "\" already", id);
    }
    if (id == 0) {
        throw RuvoClientError(RuvoProblem::Declined, "the daemon's table of jobs is full", id);
    }
    return id;
}

// A change is answered with the job's id, or -1.
void RuvoJobs::change(const RuvoRequest& request, std::int32_t id) {
    const std::int32_t answer = client_.call(request);
    if (answer != id || id == -1) {
        throw RuvoClientError(RuvoProblem::Declined, "there is no job " + std::to_string(id),
                              answer);
    }
}

void RuvoJobs::map(std::int32_t id, std::span<const std::int32_t> numbers) {
    change(mapRequest(id, numbers), id);
}

std::optional<std::int32_t> RuvoJobs::lookup(std::string_view name) {
    const std::int32_t id = client_.call(lookupRequest(name));
    if (id == -1) return std::nullopt;
    return id;
}

void RuvoJobs::remove(std::int32_t id) { change(removeRequest(id), id); }

void RuvoJobs::setProgress(std::int32_t id, std::int32_t progress) {
    change(setProgressRequest(id, progress), id);
}

std::int32_t RuvoJobs::getProgress(std::int32_t id) {
    const RuvoRequest request = getProgressRequest(id);
    client_.send(request);
    return client_.readInt();  // any number is a progress, -999 as well
}

void RuvoJobs::cancel(std::int32_t id) { change(cancelRequest(id), id); }

void RuvoJobs::requestAllProgress() { client_.send(allProgressRequest()); }

}  // namespace Ruvo
