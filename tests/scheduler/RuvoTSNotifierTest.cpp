#include "scheduler/RuvoTSNotifier.h"

#include "tests/notifier/RecordingDependent.h"
#include "tests/notifier/TestNotifier.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using RuvoService::RuvoTSNotifier;

TEST(RuvoTSNotifierTest, RaisesForThoseWhoAreRegisteredByThen) {
    TestNotifier engine;
    RuvoTSNotifier& notifier = RuvoTSNotifier::getInstance();
    notifier.connect(&engine);
    notifier.raise(1, 2);
    const Recorder recorder;
    notifier.raise(-2, 0);
    notifier.connect(nullptr);
    notifier.raise(3, 1);
    ASSERT_TRUE(engine.initialize());
    engine.cleanup();
    EXPECT_EQ(recorder->names(), std::vector<std::string>{"VornTSEvent:-2"});
    EXPECT_EQ(recorder->data(), (std::vector<std::string>{std::string(4, '\0')}));
}
