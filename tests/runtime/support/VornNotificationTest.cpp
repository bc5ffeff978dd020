#include "runtime/support/VornNotification.h"

#include "runtime/support/VornSmartPointer.h"

#include <gtest/gtest.h>

using namespace VornSupport;

namespace {

class RuvoTSTimerFired : public VornNotification {
public:
    RuvoTSTimerFired() : VornNotification(12), handle(7) {}
    const int handle;
};

// Counted through one base only, as tasks that are notifications are.
class Task : public virtual VornObjectBase {};
class TaskNotification : public Task, public VornNotification {};

TEST(VornNotification, IsOfKindZeroUnlessGivenOne) {
    EXPECT_EQ(VornNotification().getKind(), 0);
    EXPECT_EQ(VornNotification(-5).getKind(), -5);
    EXPECT_EQ(RuvoTSTimerFired().getKind(), 12);
}

TEST(VornNotification, IsKnownByItsClassName) {
    const RuvoTSTimerFired fired;
    const VornNotification& notification = fired;
    EXPECT_EQ(notification.getClassName(), "RuvoTSTimerFired");
    EXPECT_TRUE(notification.isA("VornNotification"));
    EXPECT_EQ(VornNotification().getClassName(), "VornNotification");
}

TEST(VornNotification, IsCounted) {
    const VornSmartPointer<VornNotification> notification = makeCounted<RuvoTSTimerFired>();
    EXPECT_EQ(notification->refCount(), 1u);
}

TEST(VornNotification, HasOneCountHoweverItIsCombined) {
    const auto both = makeCounted<TaskNotification>();
    const VornSmartPointer<Task> task = both;
    const VornSmartPointer<VornNotification> notification = both;
    EXPECT_EQ(both->refCount(), 3u);
    EXPECT_EQ(task->refCount(), 3u);
    EXPECT_EQ(notification->refCount(), 3u);
}

}  // namespace
