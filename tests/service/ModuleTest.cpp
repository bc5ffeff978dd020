#include "service/Module.h"

#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/support/VornException.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/service/TestMonitor.h"
#include "tests/support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ServiceTests {
namespace {

using RuvoService::Module;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using VornMonitor::VornEventMonitorManager;

const char* const kMonitors[] = {"TCPServer", "UDPServer", "Notifier", "Arbiter", "Scheduler",
                                 "JobStatus"};

bool isKnown(const char* name) { return VornEventMonitorManager::getInstance().isKnown(name); }

TEST(Module, MakesItsMonitorsKnownFromAttachToDetach) {
    const TestSupport::LogCapture log;
    Module module;
    EXPECT_TRUE(module.isAttachedAtOnce());
    for (const char* name : kMonitors) EXPECT_FALSE(isKnown(name)) << name;
    module.attach();
    for (const char* name : kMonitors) EXPECT_TRUE(isKnown(name)) << name;
    module.detach();
    for (const char* name : kMonitors) EXPECT_FALSE(isKnown(name)) << name;
    EXPECT_TRUE(log.has(9, "ruvos::Module::detach: entering"));
    EXPECT_EQ(log.texts(9).back(), "ruvos::Module::detach: exiting");
}

// Who lists or starts them sees them in the order in which they were made.
TEST(Module, MakesItsMonitorsInTheirOrder) {
    Module module;
    module.attach();
    const TestSupport::LogCapture log;
    VornEventMonitorManager::getInstance().startMonitors(
        VornSupport::makeCounted<VornSupport::VornProperties<std::string>>(true));
    std::vector<std::string> order;
    for (const auto& text : log.texts()) {
        for (const std::string name : {"RuvoTCPServer::initialize", "RuvoUDPServer::initialize",
                                       "RuvoNNEngine::initialize", "RuvoTSEngine::initialize"}) {
            if (text.starts_with(name) && (order.empty() || order.back() != name)) {
                order.push_back(name);
            }
        }
    }
    VornEventMonitorManager::getInstance().stopMonitors();
    EXPECT_THAT(order, ElementsAre("RuvoTCPServer::initialize", "RuvoUDPServer::initialize",
                                   "RuvoNNEngine::initialize", "RuvoTSEngine::initialize"));
}

TEST(Module, CanBeAttachedAgain) {
    Module module;
    module.attach();
    module.attach();
    module.detach();
    module.attach();
    EXPECT_TRUE(isKnown("JobStatus"));
}

TEST(Module, DetachesWhenItIsDestroyed) {
    {
        Module module;
        module.attach();
    }
    EXPECT_FALSE(isKnown("TCPServer"));
    const TestSupport::LogCapture log;
    { Module never; }
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(Module, MakesNoMonitorWhenANameIsTaken) {
    Module module;
    {
        const TestMonitor inTheWay("JobStatus", &answerNext);
        EXPECT_THROW(module.attach(), VornSupport::VornException);
        EXPECT_FALSE(isKnown("TCPServer"));
        EXPECT_FALSE(isKnown("Notifier"));
    }
    module.attach();
    EXPECT_TRUE(isKnown("JobStatus"));
}

// Known only when it is asked for, and gone with the scheduler that it needs.
TEST(Module, OffersTheMonitorOfFollowers) {
    auto& manager = VornEventMonitorManager::getInstance();
    Module module;
    module.attach();
    EXPECT_FALSE(isKnown("SchedulerFollow"));
    manager.loadMonitor("SchedulerFollow", nullptr);
    EXPECT_TRUE(isKnown("SchedulerFollow"));
    module.detach();
    EXPECT_FALSE(isKnown("SchedulerFollow"));
    module.attach();
    EXPECT_FALSE(isKnown("SchedulerFollow"));
}

// What happens to tasks is offered to those who registered for events.
TEST(Module, RaisesTheEventsOfTasksThroughItsNotifier) {
    const TestSupport::StoreFolder folder;
    const auto events = VornSupport::makeCounted<TestSupport::EventLog>();
    auto& container = VornNet::VornProxyDependentContainer::getInstance();
    container.add(events);
    auto& manager = VornEventMonitorManager::getInstance();
    {
        Module module;
        module.attach();
        manager.startMonitors(VornSupport::makeCounted<VornEventMonitorManager::Properties>());
        const auto task = TestSupport::OpenScheduler::scheduleBlob("task", "", 2'000'000'000, 3);
        EXPECT_TRUE(events->awaitStates(task, {2}));
        TestSupport::OpenScheduler::ask("RUVO_TS_CANCEL", task);
        EXPECT_TRUE(events->awaitStates(task, {2, -1}));
        manager.stopMonitors();
    }
    container.remove(*events);
}

TEST(Module, TellsWhereItsListenersListen) {
    Module module;
    EXPECT_THAT(module.listenerAddresses(), IsEmpty());
    module.attach();
    EXPECT_THAT(module.listenerAddresses(), IsEmpty());
    auto properties = VornSupport::makeCounted<VornEventMonitorManager::Properties>();
    properties->setProperty("ruvod.tcp-server.port", "0");
    VornEventMonitorManager::getInstance().startMonitors(properties);
    EXPECT_THAT(module.listenerAddresses(), ElementsAre(::testing::StartsWith("tcp:")));
    VornEventMonitorManager::getInstance().stopMonitors();
}

}  // namespace
}  // namespace ServiceTests
