#pragma once

#include "runtime/support/VornLogging.h"
#include "service/RuvoService.h"
#include "tests/support/TestSupport.h"

#include <string>
#include <string_view>

namespace ServiceTests {

using ServiceBase = RuvoService::RuvoService;

// A service whose inner functions a test may call.
class OpenService : public ServiceBase {
public:
    using ServiceBase::ServiceBase;
    using ServiceBase::gateway;
    using ServiceBase::getProperties;
    using ServiceBase::getWebVirtualPath;
    using ServiceBase::handleClient;
    using ServiceBase::handleNotification;
    using ServiceBase::loadMonitors;
    using ServiceBase::processEvents;
    using ServiceBase::resetValues;
    using ServiceBase::signalService;
    using ServiceBase::unloadMonitors;
};

// A temporary directory with a properties file, and the log that a service made
// from it writes.
class Place {
public:
    // The file has the lines of `text` and puts everything into the log.
    explicit Place(std::string_view text = "") { write(text); }
    ~Place() {
        // Nobody may write into a directory that is gone.
        VornSupport::VornLogging::getInstance().setTarget(0);
        VornSupport::VornLogging::getInstance().setLogLevel(1);
    }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    void write(std::string_view text) const {
        TestSupport::writeFile(properties(), "ruvod.operating-directory=" + directory_.text() +
                                                 "\nlogging.level=9\nlogging.target=2\n" +
                                                 std::string(text));
    }
    std::string properties() const { return directory_.file("test.properties"); }
    std::string file(std::string_view name) const { return directory_.file(name); }
    std::string directory() const { return directory_.text(); }

    std::string log() const {
        VornSupport::VornLogging::getInstance().flush();
        return TestSupport::readFile(directory_.file("ruvod.log"));
    }
    // Whether a record of this level has exactly this text.
    bool logged(int level, const std::string& text) const { return count(level, text) != 0; }
    int count(int level, const std::string& text) const {
        const std::string wanted = "] " + std::to_string(level) + ' ' + text + '\n';
        const std::string all = log();
        int found = 0;
        for (auto at = all.find(wanted); at != std::string::npos; at = all.find(wanted, at + 1)) {
            ++found;
        }
        return found;
    }

private:
    const TestSupport::WorkingDirectory returning_{"."};  // startIt changes it
    TestSupport::TemporaryDirectory directory_;
};

}  // namespace ServiceTests
