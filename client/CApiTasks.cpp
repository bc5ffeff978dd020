#include "client/CApi.h"
#include "client/RuvoTasks.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

using Ruvo::guardCall;
using Ruvo::requireAll;
using Ruvo::RuvoFrequency;
using Ruvo::RuvoTaskPlan;
using Ruvo::RuvoTasks;

namespace {

std::string textOf(const char* text) { return text == nullptr ? "" : text; }

Ruvo::RuvoTaskCommand commandOf(const ruvo_task_command& command) {
    return {.program = textOf(command.program), .parameters = textOf(command.parameters),
            .directory = textOf(command.directory), .logFile = textOf(command.log_file)};
}

RuvoTaskPlan planOf(const ruvo_task_plan& plan) {
    return {.time = {.year = plan.year, .month = plan.month, .day = plan.day, .hour = plan.hour,
                     .minute = plan.minute, .second = plan.second},
            .frequency = static_cast<RuvoFrequency>(plan.frequency)};
}

// With a zero byte behind it.
char* copyOf(const std::string& text) {
    char* const copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) throw std::bad_alloc();
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

// The entries, and behind them the bytes that they point to.
ruvo_task_name* blockOf(const std::vector<std::string>& names) {
    std::size_t size = std::max<std::size_t>(names.size(), 1) * sizeof(ruvo_task_name);
    for (const std::string& name : names) size += name.size() + 1;
    auto* const entries = static_cast<ruvo_task_name*>(std::malloc(size));
    if (entries == nullptr) throw std::bad_alloc();
    char* bytes = reinterpret_cast<char*>(entries + names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        std::memcpy(bytes, names[i].c_str(), names[i].size() + 1);
        entries[i] = {.bytes = bytes, .size = names[i].size()};
        bytes += names[i].size() + 1;
    }
    return entries;
}

ruvo_status listNames(ruvo_client* client, std::vector<std::string> (RuvoTasks::*list)(),
                      ruvo_task_name** names, std::size_t* count) {
    return guardCall([&] {
        requireAll(client, names, count);
        RuvoTasks tasks(client->conversation);
        const std::vector<std::string> all = (tasks.*list)();
        *names = blockOf(all);
        *count = all.size();
    });
}

}  // namespace

ruvo_status ruvo_task_schedule(ruvo_client* client, const char* name,
                               const ruvo_task_command* command, const ruvo_task_plan* plan,
                               int32_t* task) {
    return guardCall([&] {
        requireAll(client, name, command, plan, task);
        *task = RuvoTasks(client->conversation).schedule(name, commandOf(*command), planOf(*plan));
    });
}

ruvo_status ruvo_task_schedule_blob(ruvo_client* client, const char* name, const void* bytes,
                                    size_t size, const ruvo_task_plan* plan, int32_t* task) {
    return guardCall([&] {
        requireAll(client, name, plan, task);
        if (size != 0) requireAll(bytes);
        const std::string_view block(static_cast<const char*>(bytes), size);
        *task = RuvoTasks(client->conversation).scheduleBlob(name, block, planOf(*plan));
    });
}

ruvo_status ruvo_task_lookup(ruvo_client* client, const char* name, int32_t* task) {
    return guardCall([&] {
        requireAll(client, name, task);
        const auto found = RuvoTasks(client->conversation).lookup(name);
        if (!found) {
            return Ruvo::keepError(RUVO_DECLINED, "there is no task with that name", -9);
        }
        *task = *found;
        return RUVO_OK;
    });
}

ruvo_status ruvo_task_cancel(ruvo_client* client, int32_t task) {
    return guardCall([&] {
        requireAll(client);
        RuvoTasks(client->conversation).cancel(task);
    });
}

ruvo_status ruvo_task_state(ruvo_client* client, int32_t task, int32_t* state) {
    return guardCall([&] {
        requireAll(client, state);
        *state = RuvoTasks(client->conversation).state(task);
    });
}

ruvo_status ruvo_task_exit_code(ruvo_client* client, int32_t task, int32_t* exit_code) {
    return guardCall([&] {
        requireAll(client, exit_code);
        *exit_code = RuvoTasks(client->conversation).exitCode(task);
    });
}

ruvo_status ruvo_task_next_run(ruvo_client* client, int32_t task, ruvo_task_plan* plan) {
    return guardCall([&] {
        requireAll(client, plan);
        const RuvoTaskPlan next = RuvoTasks(client->conversation).nextRun(task);
        *plan = {.frequency = static_cast<int32_t>(next.frequency), .year = next.time.year,
                 .month = next.time.month, .day = next.time.day, .hour = next.time.hour,
                 .minute = next.time.minute, .second = next.time.second};
    });
}

ruvo_status ruvo_task_last_run(ruvo_client* client, int32_t task, char** text) {
    return guardCall([&] {
        requireAll(client, text);
        *text = copyOf(RuvoTasks(client->conversation).lastRun(task));
    });
}

ruvo_status ruvo_task_retrieve(ruvo_client* client, int32_t task, char** bytes, size_t* size) {
    return guardCall([&] {
        requireAll(client, bytes, size);
        const std::string kept = RuvoTasks(client->conversation).retrieve(task);
        *bytes = copyOf(kept);
        *size = kept.size();
    });
}

ruvo_status ruvo_task_list(ruvo_client* client, ruvo_task_name** names, size_t* count) {
    return listNames(client, &RuvoTasks::list, names, count);
}

ruvo_status ruvo_task_list_blobs(ruvo_client* client, ruvo_task_name** names, size_t* count) {
    return listNames(client, &RuvoTasks::listBlobs, names, count);
}

ruvo_status ruvo_task_last_status(ruvo_client* client, int32_t task, int32_t* status) {
    return guardCall([&] {
        requireAll(client, status);
        *status = RuvoTasks(client->conversation).lastStatus(task);
    });
}

ruvo_status ruvo_task_follow(ruvo_client* client, const char* remote_name, int32_t handle,
                             int32_t task) {
    return guardCall([&] {
        requireAll(client, remote_name);
        RuvoTasks(client->conversation).follow(remote_name, handle, task);
    });
}

ruvo_status ruvo_task_unfollow(ruvo_client* client, const char* remote_name, int32_t handle,
                               int32_t task) {
    return guardCall([&] {
        requireAll(client, remote_name);
        RuvoTasks(client->conversation).unfollow(remote_name, handle, task);
    });
}
