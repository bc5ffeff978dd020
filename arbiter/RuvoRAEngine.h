#pragma once

#include "engines/RuvoEngineBase.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornCollaborator.h"
#include "runtime/support/VornCriticalSection.h"
#include "runtime/support/VornNotification.h"
#include "runtime/support/VornSmartPointer.h"
#include "runtime/support/VornTreeNode.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string_view>

namespace RuvoService {

class RuvoNNEngine;
class RuvoNNEventNotification;
class RuvoRAWakeUps;

// The engine "Arbiter": named locks, which form a tree, for tools that must not
// work on one thing at once. A lock is granted under a handle and stays until
// the handle is given back, by whichever client: it is not tied to a connection.
// Each change of a lock is announced as an event through the notification
// engine's queue, while anybody listens to events.
//
// Any thread. One lock guards handles and nodes. It is held for a few
// instructions, never while a request waits, while a connection is used, while an
// event is made (but for the listener who comes in that moment) or while waiting
// requests are told. Events are queued under it, so that the events of a node come
// in the order of its changes; the queue's locks are taken after it.
class VORN_EXPORT RuvoRAEngine : public RuvoEngineBase {
public:
    // What a node tells the requests that wait for it. Each of them wakes, by way
    // of `wakeUps` where there is one.
    class VORN_EXPORT RANodeNotification : public VornSupport::VornNotification {
    public:
        explicit RANodeNotification(int kind, RuvoRAWakeUps* wakeUps = nullptr)
            : VornNotification(kind), wakeUps_(wakeUps) {}
        RuvoRAWakeUps* wakeUps() const { return wakeUps_; }

    private:
        RuvoRAWakeUps* const wakeUps_;
    };
    class VORN_EXPORT RANodeLocked final : public RANodeNotification {
    public:
        explicit RANodeLocked(RuvoRAWakeUps* wakeUps = nullptr) : RANodeNotification(1, wakeUps) {}
    };
    class VORN_EXPORT RANodeUnlocked final : public RANodeNotification {
    public:
        explicit RANodeUnlocked(RuvoRAWakeUps* wakeUps = nullptr)
            : RANodeNotification(0, wakeUps) {}
    };

    // One lock. A node says nothing about those below it: "a" and "a:b" are two
    // locks. Nodes live as long as their engine.
    class VORN_EXPORT RANode final : public VornSupport::VornTreeNode,
                                     public VornSupport::VornCollaborator {
    public:
        // Named by `path`, of which it keeps a copy.
        RANode(RuvoRAEngine& engine, std::string_view path);
        // On the way to `goal`: named by the first `length` bytes of its name,
        // which both share.
        RANode(const RANode& goal, std::size_t length);
        ~RANode() override;

        // True when this call has locked the node. While somebody else holds it,
        // waits until it is unlocked and tries again, `waitMs` at most for each
        // try: who loses to others again and again waits longer in all. Nobody
        // stands in a queue. 0 does not wait, a negative number waits without
        // limit. `client` (null: nobody) is sent its earlier answers before a
        // wait; a wait ends with its connection. Throws what the connection
        // throws; then nothing is locked.
        bool lock(int waitMs, VornNet::VornConnection* client = nullptr);
        // False, and nothing happens, when the node is not locked.
        bool unlock();
        bool isLocked() const;
        // How often the node has been unlocked, and of how many of these times all
        // who waited have been told; both begin anew after 65,535.
        struct State {
            bool locked;
            std::uint16_t unlocks;
            std::uint16_t toldUnlocks;
        };
        State look() const;
        // Called whenever an event is not made because nobody would hear of it; null:
        // nothing.
        static void setWhenUnheardForTest(void (*hook)());

        // The path by which the node was first requested, up to and with its own
        // component.
        std::string_view getNodeName() const { return {path_.get(), length_}; }

    protected:
        void printGuts(int indent) const override;
        VornSupport::VornSmartPointer<VornTreeNode> makeNode(
            std::string_view path, const VornTreeNode& child) const override;

    private:
        friend class RuvoRAEngine;

        using Event = VornSupport::VornSmartPointer<RuvoNNEventNotification>;

        bool tryLock(int waitMs) VORN_EXCLUDES(engine_.lock_);
        bool awaitUnlock(int waitMs, VornNet::VornConnection* client);
        // The parts of unlock(): the event is made and the waiting told under no
        // lock. The caller of setFree() may hold the engine's; false: it was free.
        Event makeEvent(std::int32_t state) const;  // null: nobody wants one
        Event makeUnlockEvent() const noexcept;
        bool setFree(const Event& event);
        void tellUnlocked();
        void announce(const char* operation, const Event& event) VORN_REQUIRES(engine_.lock_);
        template <class Notification>
        void tellDependents(const char* operation);

        RuvoRAEngine& engine_;
        const std::shared_ptr<const char[]> path_;
        const std::size_t length_;
        std::int32_t locked_ VORN_GUARDED_BY(engine_.lock_) = 0;  // 1: somebody has it
        std::uint16_t unlocks_ VORN_GUARDED_BY(engine_.lock_) = 0;
        std::atomic<std::uint16_t> toldUnlocks_{0};
    };
    using Node = VornSupport::VornSmartPointer<RANode>;

    // `notifier` is borrowed and outlives the engine; null: no events.
    explicit RuvoRAEngine(RuvoNNEngine* notifier);
    ~RuvoRAEngine() override;

    // The node of a path, made at the first request for it. Components are
    // separated by ":" and ","; empty ones count for nothing, so "a:b", "a,b"
    // and ":a::b:" are one node, and a path without any is the root.
    Node getNode(std::string_view path);

    // The work of the commands. The handle of the lock, the next higher number
    // each time, or 0 when it was not obtained; see RANode::lock().
    std::int32_t lock(std::string_view path, int waitMs, VornNet::VornConnection* client)
        VORN_EXCLUDES(lock_);
    // Does nothing when there is no such handle.
    void unlock(std::int32_t handle) VORN_EXCLUDES(lock_);

    // Called by the commands, no lock held, before they make a change: see
    // RuvoNNEngine::waitForRoom.
    void waitForRoom(VornNet::VornConnection& connection);
    RuvoNNEngine* notifier() const { return notifier_; }
    // Writes the tree to the log at level 9; before that it does what the thread has
    // put off.
    void printTree() const;

    // Handles that are given out at this moment.
    std::size_t heldHandlesForTest() const VORN_EXCLUDES(lock_);

protected:
    bool initialize() override;
    bool cleanup() override;

private:
    bool isHeard() const;
    std::int32_t giveHandle(const Node& node) VORN_EXCLUDES(lock_);

    RuvoNNEngine* const notifier_;
    mutable VornSupport::VornCriticalSectionObject lock_;
    RANode root_;
    std::int32_t handleCounter_ VORN_GUARDED_BY(lock_) = 0;
    std::map<std::int32_t, Node> handles_ VORN_GUARDED_BY(lock_);
};

}  // namespace RuvoService
