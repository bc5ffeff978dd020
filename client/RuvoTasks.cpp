#include "client/RuvoTasks.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace Ruvo {
namespace {

constexpr std::string_view kMonitor = "Scheduler";
constexpr std::string_view kFollowMonitor = "SchedulerFollow";
constexpr std::int32_t kNotFound = -9;

// Behind "there is no task 5".
constexpr const char* kOfAnyKind = "";
constexpr const char* kOfCommands = " with a command";
constexpr const char* kOfBytes = " with bytes";
constexpr std::int32_t kDisplaySize = 24;  // room for a time, terminator included

void addPlan(RuvoRequest& request, const RuvoTaskPlan& plan) {
    const RuvoTaskTime& at = plan.time;
    request.addInt(static_cast<std::int32_t>(plan.frequency));
    request.addInt(at.month).addInt(at.day).addInt(at.year);  // in this order
    request.addInt(at.hour).addInt(at.minute).addInt(at.second);
}

unsigned digitOf(char c) {
    if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
    if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
    throw RuvoClientError(RuvoProblem::Protocol, "a list of names holds what is no name");
}

// "%20" stands for a blank; only letters and digits stand for themselves.
std::string nameOf(std::string_view escaped) {
    std::string name;
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        if (escaped[i] != '%') {
            name += escaped[i];
            continue;
        }
        if (escaped.size() - i < 3) {
            throw RuvoClientError(RuvoProblem::Protocol, "a list of names ends within one");
        }
        name += static_cast<char>(digitOf(escaped[i + 1]) * 16 + digitOf(escaped[i + 2]));
        i += 2;
    }
    return name;
}

// "2024 02 29 12 00 00".
RuvoTaskTime timeOf(const std::string& text) {
    RuvoTaskTime time;
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::int32_t* field : {&time.year, &time.month, &time.day, &time.hour, &time.minute,
                                &time.second}) {
        while (at != end && *at == ' ') ++at;
        const auto [stop, error] = std::from_chars(at, end, *field);
        // A time before 1970 comes as blanks.
        if (error != std::errc{}) return {};
        at = stop;
    }
    return time;
}

[[noreturn]] void noSuchTask(std::int32_t task, std::int32_t answer, const char* kind) {
    throw RuvoClientError(RuvoProblem::Declined,
                          "there is no task " + std::to_string(task) + kind, answer);
}

}  // namespace

RuvoRequest RuvoTasks::scheduleRequest(std::string_view name, const RuvoTaskCommand& command,
                                       const RuvoTaskPlan& plan) {
    RuvoRequest request(kMonitor, "RUVO_TS_SCHEDULE");
    request.addString(name).addString(command.program);
    request.addString(command.directory).addString(command.parameters);  // in this order
    addPlan(request, plan);
    return request.addString(command.logFile);
}

RuvoRequest RuvoTasks::scheduleBlobRequest(std::string_view name, std::string_view bytes,
                                           const RuvoTaskPlan& plan) {
    if (bytes.size() > std::numeric_limits<std::int32_t>::max()) {
        throw RuvoClientError(RuvoProblem::Argument, "a task holds fewer than 2 GiB");
    }
    RuvoRequest request(kMonitor, "RUVO_TS_SCHEDULE_BLOB");
    request.addString(name).addInt(static_cast<std::int32_t>(bytes.size())).addBytes(bytes);
    addPlan(request, plan);
    return request;
}

std::int32_t RuvoTasks::expectHandle(const RuvoRequest& request, std::string_view name) {
    const std::int32_t handle = client_.call(request);
    if (handle >= 0) return handle;
    throw RuvoClientError(RuvoProblem::Declined,
                          "there is a task named \"" + std::string(name) + "\" already", handle);
}

std::int32_t RuvoTasks::schedule(std::string_view name, const RuvoTaskCommand& command,
                                 const RuvoTaskPlan& plan) {
    return expectHandle(scheduleRequest(name, command, plan), name);
}

std::int32_t RuvoTasks::scheduleBlob(std::string_view name, std::string_view bytes,
                                     const RuvoTaskPlan& plan) {
    return expectHandle(scheduleBlobRequest(name, bytes, plan), name);
}

std::optional<std::int32_t> RuvoTasks::lookup(std::string_view name) {
    const std::int32_t task = client_.call(
        RuvoRequest(kMonitor, "RUVO_TS_SCHEDULED_TASK_LOOKUP").addString(name));
    if (task < 0) return std::nullopt;
    return task;
}

std::int32_t RuvoTasks::expectTask(std::int32_t answer, std::int32_t task, const char* kind) {
    if (answer == kNotFound) noSuchTask(task, answer, kind);
    return answer;
}

// Not call(): -999 is a status as well.
std::int32_t RuvoTasks::ask(std::string_view command, std::int32_t task, const char* kind) {
    client_.send(RuvoRequest(kMonitor, command).addInt(task));
    return expectTask(client_.readInt(), task, kind);
}

void RuvoTasks::cancel(std::int32_t task) { ask("RUVO_TS_CANCEL", task, kOfAnyKind); }

std::int32_t RuvoTasks::state(std::int32_t task) {
    return ask("RUVO_TS_TASK_STATE", task, kOfAnyKind);
}

std::int32_t RuvoTasks::exitCode(std::int32_t task) {
    return ask("RUVO_TS_EXIT_CODE", task, kOfCommands);
}

std::string RuvoTasks::lastRun(std::int32_t task) {
    client_.send(RuvoRequest(kMonitor, "RUVO_TS_EXECUTION_INFO", RuvoRequest::Answer::Other)
                     .addInt(task)
                     .addInt(kDisplaySize));
    std::string text = client_.readString();
    expectTask(client_.readInt(), task, kOfCommands);
    return text;
}

RuvoTaskPlan RuvoTasks::nextRun(std::int32_t task) {
    client_.send(RuvoRequest(kMonitor, "RUVO_TS_GET_NEXT_TIME", RuvoRequest::Answer::Other)
                     .addInt(task));
    const std::int32_t answer = client_.readInt();
    const std::string text = client_.readString();
    const auto frequency = static_cast<RuvoFrequency>(client_.readInt());
    expectTask(answer, task, kOfAnyKind);
    return {.time = timeOf(text), .frequency = frequency};
}

std::string RuvoTasks::retrieve(std::int32_t task) {
    client_.send(RuvoRequest(kMonitor, "RUVO_TS_RETRIEVE_BLOB", RuvoRequest::Answer::Other)
                     .addInt(task));
    const std::int32_t answer = client_.readInt();
    std::string bytes = client_.readLongBytes(client_.readInt());
    expectTask(answer, task, kOfBytes);
    return bytes;
}

std::vector<std::string> RuvoTasks::readNames(std::string_view command) {
    client_.send(RuvoRequest(kMonitor, command, RuvoRequest::Answer::Other));
    client_.readInt();  // always 0
    const std::string text = client_.readLongString();
    std::vector<std::string> names;
    // A blank stands behind each name, so an empty one shows as well.
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(' ', begin), text.size());
        names.push_back(nameOf(std::string_view(text).substr(begin, end - begin)));
        begin = end + 1;
    }
    return names;
}

std::vector<std::string> RuvoTasks::list() { return readNames("RUVO_TS_LIST_EXEC"); }
std::vector<std::string> RuvoTasks::listBlobs() { return readNames("RUVO_TS_LIST_BLOB"); }

// ---- following -------------------------------------------------------------------

void RuvoTasks::changeFollowing(std::string_view command, std::string_view remoteName,
                                std::int32_t handle, std::int32_t task) {
    const std::int32_t answer = client_.call(
        RuvoRequest(kFollowMonitor, command).addString(remoteName).addInt(handle).addInt(task));
    if (answer != 0) noSuchTask(task, answer, kOfAnyKind);
}

void RuvoTasks::follow(std::string_view remoteName, std::int32_t handle, std::int32_t task) {
    changeFollowing("RUVO_TS_FOLLOW", remoteName, handle, task);
}

void RuvoTasks::unfollow(std::string_view remoteName, std::int32_t handle, std::int32_t task) {
    changeFollowing("RUVO_TS_UNFOLLOW", remoteName, handle, task);
}

std::int32_t RuvoTasks::lastStatus(std::int32_t task) {
    client_.send(RuvoRequest(kFollowMonitor, "RUVO_TS_LAST_STATUS", RuvoRequest::Answer::Other)
                     .addInt(task));
    const std::int32_t answer = client_.readInt();
    const std::int32_t status = client_.readInt();
    if (answer != 0) noSuchTask(task, answer, kOfAnyKind);
    return status;
}

}  // namespace Ruvo
