#include "client/CApi.h"
#include "client/RuvoJobs.h"

#include <span>

using Ruvo::guardCall;
using Ruvo::requireAll;
using Ruvo::RuvoJobs;

ruvo_status ruvo_job_create(ruvo_client* client, const char* name, const char* description,
                            int32_t* id) {
    return guardCall([&] {
        requireAll(client, name, description, id);
        *id = RuvoJobs(client->conversation).create(name, description);
    });
}

ruvo_status ruvo_job_map(ruvo_client* client, int32_t id, const int32_t* numbers, size_t count) {
    return guardCall([&] {
        requireAll(client);
        if (count != 0) requireAll(numbers);
        RuvoJobs(client->conversation).map(id, std::span(numbers, count));
    });
}

ruvo_status ruvo_job_lookup(ruvo_client* client, const char* name, int32_t* id) {
    return guardCall([&] {
        requireAll(client, name, id);
        const auto found = RuvoJobs(client->conversation).lookup(name);
        if (!found) {
            return Ruvo::keepError(RUVO_DECLINED, "there is no job with that name", -1);
        }
        *id = *found;
        return RUVO_OK;
    });
}

ruvo_status ruvo_job_delete(ruvo_client* client, int32_t id) {
    return guardCall([&] {
        requireAll(client);
        RuvoJobs(client->conversation).remove(id);
    });
}

ruvo_status ruvo_job_set_progress(ruvo_client* client, int32_t id, int32_t progress) {
    return guardCall([&] {
        requireAll(client);
        RuvoJobs(client->conversation).setProgress(id, progress);
    });
}

ruvo_status ruvo_job_get_progress(ruvo_client* client, int32_t id, int32_t* progress) {
    return guardCall([&] {
        requireAll(client, progress);
        *progress = RuvoJobs(client->conversation).getProgress(id);
    });
}

ruvo_status ruvo_job_cancel(ruvo_client* client, int32_t id) {
    return guardCall([&] {
        requireAll(client);
        RuvoJobs(client->conversation).cancel(id);
    });
}

ruvo_status ruvo_job_request_all_progress(ruvo_client* client) {
    return guardCall([&] {
        requireAll(client);
        RuvoJobs(client->conversation).requestAllProgress();
    });
}
