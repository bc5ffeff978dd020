#include "service/RuvoServiceThread.h"

#include "tests/service/OpenService.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace ServiceTests {
namespace {

using RuvoService::RuvoServiceThread;
using VornSupport::makeCounted;

class RuvoServiceThreadTest : public ::testing::Test {
protected:
    RuvoServiceThreadTest() {
        // The work ends as soon as it has begun.
        service_.stopIt();
    }

    // Runs the service's work on a thread, to its end.
    int exitCodeOfRun() {
        const auto thread = makeCounted<RuvoServiceThread>(service_);
        EXPECT_EQ(thread->getName(), "RuvoServiceThread");
        EXPECT_TRUE(thread->start());
        thread->waitForThreadExit();
        return thread->getExitCode();
    }
    // Whether the one who waits for the service has been told.
    bool isTold() { return service_.getEventObject().wait(0); }

    Place place_;
    OpenService service_{place_.properties(), ""};
};

TEST_F(RuvoServiceThreadTest, EndsWithZeroWhenTheWorkEndedWell) {
    EXPECT_TRUE(service_.isStoppable());
    EXPECT_FALSE(isTold());
    EXPECT_EQ(exitCodeOfRun(), 0);
    EXPECT_TRUE(isTold());
    EXPECT_TRUE(place_.logged(5, "RuvoServiceThread::run: Entering."));
    EXPECT_TRUE(place_.logged(5, "RuvoServiceThread::run: Exiting."));
}

TEST_F(RuvoServiceThreadTest, EndsWithOneWhenTheWorkFailed) {
    service_.setStartedHandler([] { throw std::runtime_error("not today"); });
    EXPECT_EQ(exitCodeOfRun(), 1);
    EXPECT_TRUE(isTold());
    EXPECT_TRUE(place_.logged(2, "RuvoService::go: exception: not today"));
}

}  // namespace
}  // namespace ServiceTests
