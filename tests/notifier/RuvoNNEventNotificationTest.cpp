#include "notifier/RuvoNNEventNotification.h"

#include "runtime/support/VornSmartPointer.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using RuvoService::RuvoNNEventNotification;
using TestSupport::addressText;
using TestSupport::LogCapture;
using VornSupport::makeCounted;

namespace {

std::string dataOf(const RuvoNNEventNotification& event) {
    return std::string(event.getData(), static_cast<std::size_t>(event.getDataSize()));
}

}  // namespace

TEST(RuvoNNEventNotification, KeepsWhatItWasGiven) {
    const auto event = makeCounted<RuvoNNEventNotification>("udp:127.0.0.1", "disk.failed",
                                                            "Disk 3", 4, "\0ab\xff");
    EXPECT_EQ(event->getSender(), "udp:127.0.0.1");
    EXPECT_EQ(event->getEventName(), "disk.failed");
    EXPECT_EQ(event->getMessage(), "Disk 3");
    EXPECT_EQ(event->getDataSize(), 4);
    EXPECT_EQ(dataOf(*event), std::string("\0ab\xff", 4));
}

TEST(RuvoNNEventNotification, HasACopyOfTheCallersBytes) {
    std::string bytes = "first";
    const auto event = makeCounted<RuvoNNEventNotification>("s", "e", "m", 5, bytes.c_str());
    bytes = "other";
    EXPECT_EQ(dataOf(*event), "first");
}

TEST(RuvoNNEventNotification, HasItsContentReadyForTheWire) {
    const auto event = makeCounted<RuvoNNEventNotification>("sender", "e", "", 2, "\0x");
    EXPECT_EQ(event->getContent(),
              std::string("\0\0\0\6sender\0\0\0\1e\0\0\0\0\0\0\0\2\0x", 25));
    EXPECT_EQ(event->getSender(), "sender");
    EXPECT_EQ(event->getEventName(), "e");
    EXPECT_EQ(event->getMessage(), "");
    EXPECT_EQ(dataOf(*event), std::string("\0x", 2));
}

TEST(RuvoNNEventNotification, MayBeWithoutData) {
    EXPECT_EQ(makeCounted<RuvoNNEventNotification>("", "e", "", 0, nullptr)->getDataSize(), 0);
    EXPECT_EQ(makeCounted<RuvoNNEventNotification>("", "e", "", 0, "abc")->getDataSize(), 0);
    EXPECT_EQ(makeCounted<RuvoNNEventNotification>("", "e", "", -1, "abc")->getDataSize(), 0);
}

TEST(RuvoNNEventNotification, TracesItsLife) {
    const LogCapture log(9);
    auto event = makeCounted<RuvoNNEventNotification>("s", "disk.failed", "m", 0, nullptr);
    const std::string address = addressText(event.get());
    event = nullptr;
    EXPECT_EQ(log.texts(9), (std::vector<std::string>{
                                "RuvoNNEventNotification::constructor this=" + address +
                                    " eventname=|disk.failed|",
                                "RuvoNNEventNotification::destructor  this=" + address}));
}

TEST(RuvoNNEventNotification, IsToldFromOtherNotifications) {
    const auto event = makeCounted<RuvoNNEventNotification>("s", "e", "m", 0, nullptr);
    const VornSupport::VornNotification& asNotification = *event;
    EXPECT_EQ(RuvoNNEventNotification::from(asNotification), event.get());
    EXPECT_EQ(event->getClassName(), "RuvoNNEventNotification");
    EXPECT_TRUE(event->isA("VornNotification"));

    class Other : public VornSupport::VornNotification {
    } other;
    EXPECT_EQ(RuvoNNEventNotification::from(other), nullptr);
    EXPECT_EQ(RuvoNNEventNotification::from(VornSupport::VornNotification()), nullptr);
}
