#include "runtime/net/VornDeliveryBacklog.h"

#include "runtime/support/VornObjectBase.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

using VornNet::VornDeliveryBacklog;
using VornSupport::makeCounted;

namespace {

class Content : public VornSupport::VornObjectBase {
public:
    explicit Content(std::string bytes) : text(std::move(bytes)) {}
    const std::string text;
};

// Takes up to `most` bytes, as a connection would.
std::string take(VornDeliveryBacklog& backlog, std::size_t most) {
    std::string taken;
    for (const auto piece : backlog.nextPieces()) taken += piece;
    taken.resize(std::min(taken.size(), most));
    backlog.markSent(taken.size());
    return taken;
}

std::string takeAll(VornDeliveryBacklog& backlog) {
    std::string taken;
    while (backlog.unsent() > 0) taken += take(backlog, 1 << 20);
    return taken;
}

TEST(VornDeliveryBacklog, HoldsNothingAtFirst) {
    VornDeliveryBacklog backlog;
    EXPECT_EQ(backlog.unsent(), 0u);
    EXPECT_EQ(backlog.deliveries(), 0u);
    EXPECT_EQ(backlog.nextPieces()[0], "");
    EXPECT_EQ(backlog.nextDelivery(), "");
}

TEST(VornDeliveryBacklog, GivesSmallDeliveriesAsOnePiece) {
    VornDeliveryBacklog backlog;
    backlog.add("one", nullptr, {});
    backlog.add("two", nullptr, {});
    EXPECT_EQ(backlog.unsent(), 6u);
    EXPECT_EQ(backlog.deliveries(), 2u);
    EXPECT_EQ(backlog.nextPieces()[0], "onetwo");
    EXPECT_EQ(backlog.nextPieces()[1], "");
    EXPECT_EQ(backlog.nextDelivery(), "one");
    backlog.markSent(3);
    EXPECT_EQ(backlog.deliveries(), 1u);
    EXPECT_EQ(backlog.nextDelivery(), "two");
    backlog.markSent(3);
    EXPECT_EQ(backlog.unsent(), 0u);
    EXPECT_EQ(backlog.deliveries(), 0u);
}

TEST(VornDeliveryBacklog, PointsToWhatIsSharedAndLetsItGo) {
    const auto content = makeCounted<Content>("shared");
    VornDeliveryBacklog backlog;
    backlog.add("a", nullptr, {});
    backlog.add("head", content, content->text);
    backlog.add("z", nullptr, {});
    EXPECT_EQ(content->refCount(), 2u);
    EXPECT_EQ(backlog.nextPieces()[0], "ahead");
    EXPECT_EQ(backlog.nextPieces()[1].data(), content->text.data()) << "no copy";
    backlog.markSent(11);
    EXPECT_EQ(content->refCount(), 1u);
    EXPECT_EQ(takeAll(backlog), "z");
}

TEST(VornDeliveryBacklog, BeginsAHalfSentDeliveryAnew) {
    const auto content = makeCounted<Content>("shared");
    VornDeliveryBacklog backlog;
    backlog.add("first", nullptr, {});
    backlog.add("head", content, content->text);
    backlog.markSent(12);  // "first", "head" and "sha"
    backlog.rewind();
    EXPECT_EQ(backlog.deliveries(), 1u);
    EXPECT_EQ(takeAll(backlog), "headshared");
    backlog.add("next", nullptr, {});
    backlog.rewind();
    EXPECT_EQ(takeAll(backlog), "next");
}

TEST(VornDeliveryBacklog, ForgetsEverything) {
    const auto content = makeCounted<Content>("shared");
    VornDeliveryBacklog backlog;
    backlog.add("head", content, content->text);
    backlog.clear();
    EXPECT_EQ(content->refCount(), 1u);
    EXPECT_EQ(backlog.unsent(), 0u);
    backlog.add("new", nullptr, {});
    EXPECT_EQ(takeAll(backlog), "new");
}

TEST(VornDeliveryBacklog, GivesEverythingInOrderHoweverItIsTaken) {
    std::mt19937 random(20260401);
    const auto content = makeCounted<Content>(std::string(5000, 's'));
    VornDeliveryBacklog backlog;
    std::string expected;
    std::string taken;
    for (int i = 0; i < 20000; ++i) {
        const std::string head = std::to_string(i) + std::string(random() % 300, '.');
        expected += head;
        if (random() % 50 == 0) {
            backlog.add(head, content, content->text);
            expected += content->text;
        } else {
            backlog.add(head, nullptr, {});
        }
        // Never empty, so that nothing but its own accounts tidies it up.
        while (backlog.unsent() > 200000) taken += take(backlog, random() % 70000);
    }
    taken += takeAll(backlog);
    EXPECT_TRUE(taken == expected);
    EXPECT_EQ(content->refCount(), 1u);
}

}  // namespace
