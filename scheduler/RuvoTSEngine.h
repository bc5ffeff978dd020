#pragma once

#include "engines/RuvoEngineBase.h"
#include "runtime/platform/Export.h"

#include <cstdint>
#include <string>

namespace RuvoService {

class RuvoNNEngine;

// The engine "Scheduler": runs command lines, or tells of stored bytes, at given
// times, once or again and again. The tasks live in RuvoTSTaskSet and outlive
// the service in its store, which initialize() reads back. What all parts of
// the scheduler share (task set, notifier, runs, UTC offset) exists once a
// process, so there is one such engine at a time.
//
// cleanup() lets go of everything: waiting tasks are dropped, commands that run
// go on without us, and the store stays as the last change left it. It takes a
// few seconds at most. Both may be repeated.
//
// While it exists it announces the monitor "SchedulerFollow"
// (RuvoTSFollowEngine), which "ruvod.load-monitors" brings in.
class VORN_EXPORT RuvoTSEngine : public RuvoEngineBase {
public:
    static constexpr std::int32_t kNotFound = -9;
    static constexpr std::int32_t kNameTaken = -11;

    // `notifier` is borrowed and outlives the engine; null: no events.
    explicit RuvoTSEngine(RuvoNNEngine* notifier);
    ~RuvoTSEngine() override;

    // Has a client told of each change of a task's state, and no more: 0, or
    // kNotFound for an unknown task. Who follows a task twice is told twice;
    // unfollow() takes one of these back, and is content when there is none.
    std::int32_t follow(const std::string& remoteName, std::int32_t dependentHandle,
                        std::int32_t taskHandle);
    std::int32_t unfollow(const std::string& remoteName, std::int32_t dependentHandle,
                          std::int32_t taskHandle);

    // Called by the commands that announce a change, no lock held, before they
    // make it: see RuvoNNEngine::waitForRoom.
    void waitForRoom(VornNet::VornConnection& connection);

protected:
    bool initialize() override;
    bool cleanup() override;

private:
    static bool recover();
    static void letGo();

    RuvoNNEngine* const notifier_;
    bool hasInterpreter_ = false;
};

}  // namespace RuvoService
