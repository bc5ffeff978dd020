#include "service/RuvoService.h"

#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/net/VornNetLimits.h"
#include "runtime/support/VornException.h"
#include "tests/service/OpenService.h"
#include "tests/service/RunningService.h"
#include "tests/service/TestMonitor.h"
#include "tests/support/TestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

namespace ServiceTests {
namespace {

using ::testing::HasSubstr;
using TestSupport::waitUntil;
using VornMonitor::VornEventMonitorManager;
using VornSupport::VornException;
using VornSupport::VornLogging;
using VornSupport::VornPropertyNotFound;

// ---- construction ------------------------------------------------------------

TEST(RuvoService, TakesTheNameOfTheApplicationWhereNoOtherIsGiven) {
    const Place place;
    const OpenService service(place.properties(), "");
    EXPECT_EQ(service.getApplicationName(), "VRUVO");
    EXPECT_EQ(service.getServiceName(), "VRUVO");
    EXPECT_EQ(service.getServiceDisplayName(), "VRUVO");
    EXPECT_EQ(service.getServiceDescription(), L"");
}

TEST(RuvoService, TakesEachNameFromTheOneBeforeIt) {
    const Place place("ruvod.application-name=APP\n");
    EXPECT_EQ(OpenService(place.properties(), "").getServiceDisplayName(), "APP");
    place.write("ruvod.application-name=APP\nruvod.service-name=SERVICE\n");
    {
        const OpenService service(place.properties(), "");
        EXPECT_EQ(service.getApplicationName(), "APP");
        EXPECT_EQ(service.getServiceName(), "SERVICE");
        EXPECT_EQ(service.getServiceDisplayName(), "SERVICE");
    }
    place.write("ruvod.service-display-name=The Service\n");
    const OpenService service(place.properties(), "");
    EXPECT_EQ(service.getServiceName(), "VRUVO");
    EXPECT_EQ(service.getServiceDisplayName(), "The Service");
}

TEST(RuvoService, ReadsItsDescriptionFromTheMessageSetBesideTheFile) {
    const Place place;
    TestSupport::writeFile(place.file("test.msg"), "ruvod.service-description=Does things\n");
    EXPECT_EQ(OpenService(place.properties(), "").getServiceDescription(), L"Does things");
    TestSupport::writeFile(place.file("test.msg"), "another=text\n");
    EXPECT_EQ(OpenService(place.properties(), "").getServiceDescription(), L"");
}

TEST(RuvoService, IsTheOneInstance) {
    const Place place;
    const OpenService service(place.properties(), "");
    EXPECT_EQ(&RuvoService::RuvoService::getInstance(), &service);
}

TEST(RuvoService, CannotBeMadeFromAFileThatCannotBeRead) {
    const Place place;
    const std::string missing = place.file("missing.properties");
    try {
        const OpenService service(missing, "");
        FAIL() << "it was made";
    } catch (const VornException& e) {
        EXPECT_EQ(e.getMessage(),
                  "VornProperties<StringType>::loadProperties: couldn't open file " + missing);
        EXPECT_EQ(e.getCode(), 0);
    }
}

TEST(RuvoService, AppliesTheLogLevelOnlyFromZeroToNine) {
    const Place place;
    VornLogging::getInstance().setLogLevel(3);
    place.write("logging.level=10\n");
    { const OpenService service(place.properties(), ""); }
    EXPECT_EQ(VornLogging::getInstance().getLogLevel(), 3);
    place.write("logging.level=-1\n");
    { const OpenService service(place.properties(), ""); }
    EXPECT_EQ(VornLogging::getInstance().getLogLevel(), 3);
    place.write("logging.level=0\n");
    { const OpenService service(place.properties(), ""); }
    EXPECT_EQ(VornLogging::getInstance().getLogLevel(), 0);
}

TEST(RuvoService, HasLevelOneAndTheFileAsTheDefaultsOfTheLog) {
    const Place place;
    VornLogging::getInstance().setLogLevel(5);
    VornLogging::getInstance().setTarget(0);
    TestSupport::writeFile(place.properties(),
                           "ruvod.operating-directory=" + place.directory() + "\n");
    const OpenService service(place.properties(), "");
    EXPECT_EQ(VornLogging::getInstance().getLogLevel(), 1);
    EXPECT_EQ(VornLogging::getInstance().getTarget(), 2);
}

TEST(RuvoService, AppliesTheLimitsAndLogsValuesThatItCannotUse) {
    const Place place("ruvod.limits.string-bytes=1000\nruvod.limits.clients=none\n");
    const OpenService service(place.properties(), "");
    EXPECT_EQ(VornNet::VornNetLimits::getInstance().stringBytes, 1000u);
    EXPECT_EQ(VornNet::VornNetLimits::getInstance().clients, 4096);
    EXPECT_EQ(place.count(2, "RuvoService::readSettings: ruvod.limits.clients: \"none\" is not a "
                             "number from 1 to 1000000"),
              1);
}

// ---- start and stop ----------------------------------------------------------

TEST(RuvoService, CannotBeStartedWithoutAnOperatingDirectory) {
    const Place place;
    TestSupport::writeFile(place.properties(), "logging.target=0\n");
    OpenService service(place.properties(), "");
    try {
        service.startIt("");
        FAIL() << "it was started";
    } catch (const VornPropertyNotFound& e) {
        EXPECT_EQ(e.getPropertyName(), "ruvod.operating-directory");
    }
    EXPECT_TRUE(service.stopIt());
}

TEST(RuvoService, CanBeStoppedWithoutHavingBeenStarted) {
    const Place place;
    OpenService service(place.properties(), "");
    EXPECT_TRUE(service.stopIt());
    EXPECT_TRUE(place.logged(9, "RuvoService::stopIt: done stopping service."));
    EXPECT_FALSE(place.logged(9, "RuvoService::stopIt: waiting for service thread to exit."));
}

TEST(RuvoService, WorksInItsOperatingDirectory) {
    const Place place;
    RunningService service(place.properties());
    EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::current_path(),
                                            TestSupport::toPath(place.directory())));
}

TEST(RuvoService, GoesOnWhereItIsWhenItCannotChangeItsDirectory) {
    const Place place;
    const std::string missing = place.file("missing");
    TestSupport::writeFile(place.properties(), "ruvod.operating-directory=" + missing +
                                                   "\nlogging.file=" + place.file("ruvod.log") +
                                                   "\n");
    const auto before = std::filesystem::current_path();
    RunningService service(place.properties());
    EXPECT_TRUE(service.isStarted());
    EXPECT_EQ(std::filesystem::current_path(), before);
    EXPECT_THAT(place.log(), HasSubstr("] 0 RuvoService::startIt: the operating directory \"" +
                                       missing + "\" cannot be changed to: "));
}

TEST(RuvoService, RunsFromStartToStopAndLogsItsSteps) {
    const Place place;
    {
        RunningService service(place.properties());
        ASSERT_TRUE(service.isStarted());
        EXPECT_FALSE(service.hasEnded());
        EXPECT_TRUE(service.stop());
    }
    const std::string log = place.log();
    std::size_t at = 0;
    for (const char* line : {"] 5 RuvoServiceThread::run: Entering.\n", "] 9 RuvoService::go: entering\n",
                             "] 9 RuvoService::stopIt: waiting for service thread to exit.\n",
                             "] 5 RuvoServiceThread::run: Exiting.\n",
                             "] 9 RuvoService::stopIt: done stopping service.\n",
                             "] 9 RuvoService::~RuvoService: done\n",
                             "] 9 ~RuvoServiceClientThreadPool: all client threads exited.\n"}) {
        // Entering and waiting come from two threads.
        const auto found = log.find(line);
        ASSERT_NE(found, std::string::npos) << line;
        if (std::string_view(line).find("waiting") == std::string_view::npos) {
            EXPECT_GE(found, at) << line;
            at = found;
        }
    }
}

TEST(RuvoService, StartsAndStopsWithoutPausing) {
    const Place place;
    auto shortest = std::chrono::steady_clock::duration::max();
    for (int i = 0; i < 5; ++i) {
        const auto begun = std::chrono::steady_clock::now();
        {
            RunningService service(place.properties());
            ASSERT_TRUE(service.stop());
        }
        shortest = std::min(shortest, std::chrono::steady_clock::now() - begun);
    }
    EXPECT_LT(shortest, std::chrono::milliseconds(90));
}

TEST(RuvoService, CanRunAgainAndAgainInOneProcess) {
    const Place place;
    for (int i = 0; i < 20; ++i) {
        RunningService service(place.properties());
        ASSERT_TRUE(service.isStarted());
        ASSERT_TRUE(service.stop());
    }
}

TEST(RuvoService, StopsAtOnceWhenItWasAskedToBeforeItRan) {
    const Place place;
    OpenService service(place.properties(), "");
    service.stop();
    EXPECT_TRUE(service.run());
}

// ---- monitors ----------------------------------------------------------------

TEST(RuvoService, StartsConfiguresAndStopsTheMonitors) {
    const Place place;
    TestMonitor monitor("ServiceTest");
    {
        RunningService service(place.properties());
        EXPECT_EQ(monitor.initialized, 1);
        EXPECT_EQ(monitor.configured, 1);
        EXPECT_EQ(monitor.cleanedUp, 0);
    }
    EXPECT_EQ(monitor.cleanedUp, 1);
}

TEST(RuvoService, GoesOnWithoutAMonitorThatCannotBeStarted) {
    const Place place;
    TestMonitor bad("Bad");
    TestMonitor good("Good");
    bad.startable = false;
    RunningService service(place.properties());
    EXPECT_TRUE(service.isStarted());
    EXPECT_EQ(good.initialized, 1);
    EXPECT_THAT(place.log(), HasSubstr("could not start Bad"));
}

class RuvoServiceMonitorLists : public ::testing::Test {
protected:
    RuvoServiceMonitorLists() {
        for (const char* name : {"First", "Second"}) {
            manager_.announce(name, [name] { return std::make_unique<TestMonitor>(name); });
        }
    }
    ~RuvoServiceMonitorLists() override {
        for (const char* name : {"First", "Second"}) {
            if (manager_.isKnown(name)) manager_.unloadMonitor(name);
            manager_.withdraw(name);
        }
    }

    VornEventMonitorManager& manager_ = VornEventMonitorManager::getInstance();
};

TEST_F(RuvoServiceMonitorLists, LoadsTheNamedMonitorsAtTheStart) {
    const Place place("ruvod.load-monitors=First;;Second;\n");
    RunningService service(place.properties());
    EXPECT_TRUE(manager_.isKnown("First"));
    EXPECT_TRUE(manager_.isKnown("Second"));
}

TEST_F(RuvoServiceMonitorLists, EndsTheListAtAMonitorThatDoesNotExist) {
    const Place place("ruvod.load-monitors=First;NoSuchMonitor;Second\n");
    RunningService service(place.properties());
    EXPECT_TRUE(service.isStarted());
    EXPECT_TRUE(manager_.isKnown("First"));
    EXPECT_FALSE(manager_.isKnown("Second"));
    EXPECT_THAT(place.log(), HasSubstr("] 2 RuvoService::loadMonitors: "));
    EXPECT_THAT(place.log(), HasSubstr("NoSuchMonitor"));
}

TEST_F(RuvoServiceMonitorLists, UnloadsAtAReloadAndEmptiesTheList) {
    const Place place("ruvod.load-monitors=First;Second\n");
    RunningService service(place.properties());
    place.write("ruvod.load-monitors=First\nruvod.unload-monitors=Second\n");
    service->requestReload();
    EXPECT_TRUE(waitUntil([&] { return !manager_.isKnown("Second"); }));
    EXPECT_TRUE(waitUntil(
        [&] { return service->getProperties()->getProperty("ruvod.unload-monitors").empty(); }));
    EXPECT_TRUE(manager_.isKnown("First"));
}

TEST_F(RuvoServiceMonitorLists, LeavesMonitorsAtTheStartThatAreToBeUnloaded) {
    const Place place("ruvod.load-monitors=First\nruvod.unload-monitors=First\n");
    RunningService service(place.properties());
    EXPECT_TRUE(manager_.isKnown("First"));
}

// ---- values and reloading ----------------------------------------------------

TEST(RuvoService, EndsTheVirtualPathInASeparator) {
    const Place place("ruvod.web.virtual-path=/web\n");
    OpenService service(place.properties(), "");
    EXPECT_EQ(service.getWebVirtualPath(), "");
    service.resetValues(true);
    EXPECT_EQ(service.getWebVirtualPath(), "/web/");
    for (const auto& [value, expected] :
         {std::pair{"/web/", "/web/"}, {"C:\\web\\", "C:\\web\\"}, {"", "/"}, {"w", "w/"}}) {
        service.getProperties()->setProperty("ruvod.web.virtual-path", value);
        service.resetValues(true);
        EXPECT_EQ(service.getWebVirtualPath(), expected);
    }
}

TEST(RuvoService, ExpandsTheVirtualPath) {
    const Place place("base=/srv\nruvod.web.virtual-path=${base}/pages\n");
    OpenService service(place.properties(), "");
    service.resetValues(true);
    EXPECT_EQ(service.getWebVirtualPath(), "/srv/pages/");
}

TEST(RuvoService, SkipsOnlyTheValuesThatAreMissing) {
    const Place place("ruvod.web.virtual-path=/web\n");
    OpenService service(place.properties(), "");
    service.getProperties()->removeProperty("logging.level");
    service.getProperties()->removeProperty("logging.target");
    service.resetValues(true);
    EXPECT_EQ(service.getWebVirtualPath(), "/web/");
    EXPECT_TRUE(
        place.logged(4, "RuvoService::resetValues: property not found: logging.level"));
    EXPECT_TRUE(
        place.logged(4, "RuvoService::resetValues: property not found: logging.target"));
}

TEST(RuvoService, ReadsTheFileAgainWhenAsked) {
    const Place place("ruvod.web.virtual-path=/old\nremoved=1\n");
    TestMonitor monitor("ServiceTest");
    RunningService service(place.properties());
    place.write("ruvod.web.virtual-path=/new\nruvod.limits.clients=11\nadded=1\n");
    service->requestReload();
    EXPECT_TRUE(waitUntil([&] { return service->getWebVirtualPath() == "/new/"; }));
    EXPECT_TRUE(waitUntil([&] { return monitor.configured == 2; }));
    EXPECT_EQ(VornNet::VornNetLimits::getInstance().clients, 11);
    EXPECT_TRUE(service->getProperties()->contains("added"));
    EXPECT_FALSE(service->getProperties()->contains("removed"));
    EXPECT_EQ(monitor.initialized, 1);
    EXPECT_TRUE(place.logged(
        3, "RuvoService::reloadProperties: " + place.properties() + " was read again"));
}

TEST(RuvoService, KeepsTheOldValuesWhenTheFileCannotBeReadAgain) {
    const Place place("ruvod.web.virtual-path=/old\n");
    RunningService service(place.properties());
    std::filesystem::remove(TestSupport::toPath(place.properties()));
    service->requestReload();
    EXPECT_TRUE(waitUntil([&] {
        return place.logged(2, "RuvoService::reloadProperties: the old values stay: "
                               "VornProperties<StringType>::loadProperties: couldn't open file " +
                                   place.properties());
    }));
    EXPECT_EQ(service->getProperties()->getProperty("ruvod.web.virtual-path"), "/old");
    EXPECT_EQ(service->getWebVirtualPath(), "/old/");
}

TEST(RuvoService, FindsItsFileAgainAfterChangingItsDirectory) {
    const Place place("ruvod.web.virtual-path=/old\n");
    const TestSupport::TemporaryDirectory elsewhere;
    TestSupport::writeFile(elsewhere.file("relative.properties"),
                           TestSupport::readFile(place.properties()));
    const TestSupport::WorkingDirectory there(elsewhere.text());
    RunningService service("relative.properties");
    ASSERT_TRUE(service.isStarted());
    TestSupport::writeFile(elsewhere.file("relative.properties"),
                           "ruvod.web.virtual-path=/new\nlogging.target=0\n");
    service->requestReload();
    EXPECT_TRUE(waitUntil([&] { return service->getWebVirtualPath() == "/new/"; }));
}

TEST(RuvoService, StartsAtAReloadTheMonitorsThatCouldNotBeStartedBefore) {
    const Place place;
    TestMonitor monitor("ServiceTest");
    monitor.startable = false;
    RunningService service(place.properties());
    EXPECT_EQ(monitor.initialized, 0);
    monitor.startable = true;
    service->requestReload();
    EXPECT_TRUE(waitUntil([&] { return monitor.initialized == 1; }));
}

// ---- events ------------------------------------------------------------------

TEST(RuvoService, ProcessesEventsWhenTheManagerTellsThatThereAreSome) {
    const Place place;
    TestMonitor monitor("ServiceTest");
    RunningService service(place.properties());
    VornEventMonitorManager::getInstance().postEvent({"source", "text"});
    EXPECT_TRUE(waitUntil([&] { return monitor.events == 1; }));
    EXPECT_TRUE(waitUntil([&] {
        return place.logged(9, "RuvoService::processEvents: entering.") &&
               place.logged(9, "RuvoService::processEvents: exiting.");
    }));
}

TEST(RuvoService, ProcessesEventsOnceAtLeastHoweverOftenItIsTold) {
    const Place place;
    RunningService service(place.properties());
    const VornEventMonitorManager::TimerNotification timer;
    for (int i = 0; i < 100; ++i) {
        service->handleNotification(VornEventMonitorManager::getInstance(), timer);
    }
    EXPECT_TRUE(waitUntil(
        [&] { return place.count(9, "RuvoService::processEvents: exiting.") >= 1; }));
}

TEST(RuvoService, IgnoresOtherNotifications) {
    const Place place;
    {
        RunningService service(place.properties());
        service->handleNotification(VornEventMonitorManager::getInstance(),
                                    VornSupport::VornNotification(1));
        service->getProperties()->setProperty("a", "b");
    }
    EXPECT_EQ(place.count(9, "RuvoService::processEvents: entering."), 0);
}

TEST(RuvoService, TakesEventsFromTheSpoolFileOfItsDirectory) {
    const Place place;
    TestMonitor monitor("ServiceTest");
    RunningService service(place.properties());
    TestSupport::writeFile(place.file("trapinfo.txt"), "one\ntwo\n");
    service->handleNotification(VornEventMonitorManager::getInstance(),
                                VornEventMonitorManager::TimerNotification());
    EXPECT_TRUE(waitUntil([&] { return monitor.events == 2; }));
    EXPECT_TRUE(waitUntil([&] { return !TestSupport::exists(place.file("trapinfo.txt")); }));
}

}  // namespace
}  // namespace ServiceTests
