#pragma once

#include "client/RuvoClient.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace Ruvo {

// The jobs of the monitor "JobStatus", over a borrowed conversation. Where the
// daemon's answer is no, the calls throw RuvoClientError (Declined) with its
// answer as the code: -1, there is no such job, unless something else is said.
// The request functions make the same requests for a batch, whose answers are
// then the caller's to judge.
class RUVO_API RuvoJobs {
public:
    explicit RuvoJobs(RuvoClient& client) : client_(client) {}

    // The new job's id, 1 to 10000. -1: the name is taken. While all ids
    // are taken it is 10000, and the job that had it is gone.
    std::int32_t create(std::string_view name, std::string_view description);
    // Replaces the job's list of numbers.
    void map(std::int32_t id, std::span<const std::int32_t> numbers);
    // Empty when no job has that name.
    std::optional<std::int32_t> lookup(std::string_view name);
    void remove(std::int32_t id);
    void setProgress(std::int32_t id, std::int32_t progress);
    // 0 as well when there is no such job: the daemon does not tell them apart.
    std::int32_t getProgress(std::int32_t id);
    // The job stays, and may go on to report progress.
    void cancel(std::int32_t id);
    // The daemon takes this request and never answers it; nor is it waited for.
    void requestAllProgress();

    static RuvoRequest createRequest(std::string_view name, std::string_view description);
    static RuvoRequest mapRequest(std::int32_t id, std::span<const std::int32_t> numbers);
    static RuvoRequest lookupRequest(std::string_view name);
    static RuvoRequest removeRequest(std::int32_t id);
    static RuvoRequest setProgressRequest(std::int32_t id, std::int32_t progress);
    static RuvoRequest getProgressRequest(std::int32_t id);
    static RuvoRequest cancelRequest(std::int32_t id);
    static RuvoRequest allProgressRequest();

private:
    void change(const RuvoRequest& request, std::int32_t id);

    RuvoClient& client_;
};

}  // namespace Ruvo
