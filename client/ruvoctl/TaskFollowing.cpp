#include "client/ruvoctl/TaskFollowing.h"

#include <algorithm>
#include <cstring>

namespace Ruvoctl {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// How soon an interrupt, or that the daemon has gone, is noticed. Changes of the
// task do not wait for it.
constexpr milliseconds kLookInterval(200);
constexpr milliseconds kLastWords(2000);

std::int32_t stateOf(const Ruvo::RuvoDelivery& delivery) {
    std::int32_t state = 0;
    std::memcpy(&state, delivery.data.data(), std::min(delivery.data.size(), sizeof state));
    return state;
}

}  // namespace

TaskFollowing::TaskFollowing(Session& session, Ruvo::RuvoClient& client, std::int32_t task)
    : session_(session), client_(client), task_(task), listener_({.taskChanges = true}),
      handle_(listener_.newHandle()) {
    session_.surroundings.catchInterrupts();
    try {
        Ruvo::RuvoTasks(client_).follow(listener_.remoteName(), handle_, task_);
    } catch (const Ruvo::RuvoClientError& error) {
        if (error.problem() != Ruvo::RuvoProblem::Closed) throw;
        throw Failure(kRefused, "the daemon does not let tasks be followed; "
                                "\"ruvod.load-monitors\" must name SchedulerFollow");
    }
}

// An orphaned registration would stay in the daemon for as long as the task.
TaskFollowing::~TaskFollowing() {
    if (isOver_ || !client_.isOpen()) return;
    try {
        client_.setTimeout(kLastWords);
        Ruvo::RuvoTasks(client_).unfollow(listener_.remoteName(), handle_, task_);
    } catch (const Ruvo::RuvoClientError& error) {
        // The task may have gone on its own meanwhile.
        if (error.problem() == Ruvo::RuvoProblem::Declined) return;
        session_.surroundings.err << "ruvoctl: could not unregister: " << error.what()
                                  << std::endl;
    }
}

bool TaskFollowing::isDaemonGone() {
    if (session_.useUdp && Clock::now() - lastSign_ >= session_.surroundings.signOfLife) {
        lastSign_ = Clock::now();
        try {
            client_.acknowledge();
        } catch (const Ruvo::RuvoClientError&) {
            return true;
        }
    }
    return client_.isDaemonGone();
}

int TaskFollowing::finish(int status, const std::string& why) {
    session_.surroundings.err << "ruvoctl: " << why << std::endl;
    return status;
}

int TaskFollowing::run(milliseconds patience, int whenInterrupted, const Visit& visit) {
    const auto end = Clock::now() + patience;
    bool gone = false;
    for (;;) {
        // A daemon that has gone may have left deliveries behind.
        milliseconds wait = gone ? milliseconds(0) : kLookInterval;
        if (patience.count() > 0) {
            const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
            wait = std::clamp(left, milliseconds(0), wait);
        }
        if (const auto delivery = listener_.next(wait)) {
            const std::int32_t state = stateOf(*delivery);
            isOver_ = isOver_ || state == Ruvo::RuvoTasks::Finished;
            if (const auto status = visit(state, *delivery)) return *status;
        } else if (gone) {
            isOver_ = true;
            return finish(kUnreachable, "the daemon has gone");
        }
        if (session_.surroundings.isInterrupted()) return whenInterrupted;
        if (patience.count() > 0 && Clock::now() >= end) {
            return finish(kRefused, "the time is over");
        }
        gone = gone || isDaemonGone();
    }
}

}  // namespace Ruvoctl
