#include "runtime/support/VornPostponed.h"

#include <gtest/gtest.h>

#include <thread>

using VornSupport::VornPostponed;

namespace {

class Counted final : public VornPostponed {
public:
    using VornPostponed::postpone;
    using VornPostponed::takeBack;
    int runs = 0;
    bool pendingMeanwhile = true;

private:
    void run() noexcept override {
        pendingMeanwhile = isPending();
        ++runs;
    }
};

}  // namespace

TEST(VornPostponed, IsPerformedOnce) {
    Counted counted;
    EXPECT_FALSE(VornPostponed::isPending());
    VornPostponed::perform();
    counted.postpone();
    EXPECT_TRUE(VornPostponed::isPending());
    EXPECT_EQ(counted.runs, 0);
    VornPostponed::perform();
    EXPECT_EQ(counted.runs, 1);
    EXPECT_FALSE(counted.pendingMeanwhile);
    EXPECT_FALSE(VornPostponed::isPending());
    VornPostponed::perform();
    EXPECT_EQ(counted.runs, 1);
}

TEST(VornPostponed, IsNotPerformedOnceItWasTakenBackOrIsGone) {
    Counted counted;
    counted.postpone();
    counted.takeBack();
    EXPECT_FALSE(VornPostponed::isPending());
    {
        Counted gone;
        gone.postpone();
    }
    EXPECT_FALSE(VornPostponed::isPending());
    VornPostponed::perform();
    EXPECT_EQ(counted.runs, 0);
}

TEST(VornPostponed, ConcernsItsOwnThread) {
    Counted counted;
    counted.postpone();
    std::thread([] {
        EXPECT_FALSE(VornPostponed::isPending());
        VornPostponed::perform();
    }).join();
    EXPECT_EQ(counted.runs, 0);
}
