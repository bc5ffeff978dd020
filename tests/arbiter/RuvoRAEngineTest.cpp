#include "arbiter/RuvoRAEngine.h"

#include "runtime/monitor/VornEventMonitorManager.h"
#include "tests/arbiter/ArbiterFixture.h"
#include "tests/runtime/platform/NativeProbe.h"
#include "tests/runtime/support/AllocationCount.h"
#include "tests/support/LogCapture.h"

#include <limits>
#include <set>
#include <string>
#include <string_view>
#include <vector>

using namespace ArbiterTest;
using namespace std::string_view_literals;
using TestSupport::LogCapture;

namespace {

class RuvoRAEngine : public Fixture {};

std::string deepPath(int depth) {
    std::string path;
    for (int i = 0; i < depth; ++i) path += i % 2 == 0 ? "n:" : "n,";
    return path;
}

}  // namespace

// ---- nodes -------------------------------------------------------------------------

TEST_F(RuvoRAEngine, TakesEitherSeparatorForTheSame) {
    const auto node = engine_.getNode("a:b");
    for (const char* path : {"a,b", "a:b", ":a:b", "a::b", "a,:,b,", ",,a,b:::"}) {
        EXPECT_TRUE(engine_.getNode(path) == node) << path;
    }
    for (const char* path : {"a", "b", "a:b:c", "ab", "a;b", "A:b", " a:b", "a:b "}) {
        EXPECT_FALSE(engine_.getNode(path) == node) << path;
    }
}

TEST_F(RuvoRAEngine, NamesANodeByThePathOfItsFirstRequest) {
    EXPECT_EQ(engine_.nameOf("a,b"), "a,b");
    EXPECT_EQ(engine_.nameOf("a:b"), "a,b") << "it is there already";
    EXPECT_EQ(engine_.nameOf("a"), "a") << "made on the way";
    EXPECT_EQ(engine_.nameOf(":x::y,"), ":x::y") << "up to and with its own component";
    EXPECT_EQ(engine_.nameOf("x"), ":x");
    EXPECT_EQ(engine_.nameOf("x:y:z"), "x:y:z");
    EXPECT_EQ(engine_.nameOf("p:q,r:s"), "p:q,r:s");
    EXPECT_EQ(engine_.nameOf("p:q:r"), "p:q,r");
    EXPECT_EQ(engine_.nameOf("p,q"), "p:q");
}

TEST_F(RuvoRAEngine, TakesAPathWithoutAComponentForTheRoot) {
    const auto root = engine_.getNode("");
    EXPECT_EQ(root->getNodeName(), "root");
    for (const char* path : {":", ",", "::,:,"}) EXPECT_TRUE(engine_.getNode(path) == root) << path;
    EXPECT_FALSE(engine_.getNode("root") == root) << "a node of that name is another one";
    EXPECT_EQ(lock(""), 1);
    EXPECT_EQ(lock(",:"), 0);
    EXPECT_EQ(lock("root"), 2);
    EXPECT_EQ(lock("a"), 3) << "the root stands for itself only";
    unlock(1);
    EXPECT_EQ(lock(":"), 4);
}

TEST_F(RuvoRAEngine, TakesAnyBytesInAPath) {
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != ':' && byte != ',') bytes += static_cast<char>(byte);
    }
    const auto withZero = "a\0b"sv;
    const auto twoLevels = "a\0:\0"sv;
    for (const std::string_view path : {std::string_view(bytes), withZero, twoLevels, "\0"sv}) {
        EXPECT_EQ(engine_.nameOf(path), path);
        EXPECT_TRUE(engine_.getNode(path) == engine_.getNode(path));
    }
    EXPECT_FALSE(engine_.getNode(withZero) == engine_.getNode("a"));
    std::set<const void*> nodes;
    for (int byte = 0; byte < 256; ++byte) {
        nodes.insert(engine_.getNode(std::string(1, static_cast<char>(byte))).get());
    }
    EXPECT_EQ(nodes.size(), 255u) << "the two separators are the root both";
}

TEST_F(RuvoRAEngine, TakesPathsOfAnyLength) {
    const std::string name(1 << 20, 'x');
    EXPECT_EQ(lock(name), 1);
    EXPECT_EQ(lock(name), 0);
    EXPECT_EQ(engine_.lock(name + 'x'), 2) << "more than a request can hold";
    EXPECT_EQ(lock(std::string(1 << 20, ':')), 3) << "the root";
    EXPECT_EQ(events(), (Texts{"VornRAEvent:" + name + "=1", "VornRAEvent:" + name + "x=1",
                               "VornRAEvent:root=1"}));
}

TEST_F(RuvoRAEngine, TakesPathsOfAnyDepth) {
    engine_.retire();  // its name is wanted
    for (const int depth : {1000, 500'000}) {
        const std::string path = deepPath(depth);
        Engine engine(nullptr);
        EXPECT_EQ(engine.lock(path), 1) << depth;
        EXPECT_EQ(engine.lock(path), 0);
        EXPECT_EQ(engine.lock(path.substr(0, path.size() - 2)), 2);
        EXPECT_EQ(engine.getNode(path)->getNodeName().size(), path.size() - 1);
        EXPECT_EQ(engine.nameOf("n"), "n");
        EXPECT_EQ(engine.nameOf("n:n:n"), "n:n,n");
        engine.unlock(1);
        EXPECT_EQ(engine.lock(path), 3);
    }
}

// Half a million names of half a megabyte each would not fit any machine.
TEST_F(RuvoRAEngine, SharesTheBytesOfANameAmongTheNodesOfOneRequest) {
    constexpr std::size_t kDepth = 100'000;
    const std::string path = deepPath(kDepth);
    engine_.retire();
    Engine engine(nullptr);
    const std::size_t before = AllocationCount::ofThisThread().bytes;
    engine.getNode(path);
    EXPECT_LT(AllocationCount::ofThisThread().bytes - before, kDepth * 450);
}

TEST_F(RuvoRAEngine, TakesAtMost400BytesANodeBesidesItsName) {
    if (!NativeProbe::replacesAllocationEverywhere()) return;  // some would not be counted
    constexpr std::size_t kNodes = 45'000;
    constexpr std::size_t kHeap = 3 * 12;  // what the heap adds to three pieces, on average
    engine_.retire();
    const auto bytesOf = [](const std::string& prefix) {
        Engine engine(nullptr);
        const std::size_t before = AllocationCount::ofThisThread().bytes;
        for (std::size_t i = 0; i < kNodes; ++i) engine.getNode(prefix + std::to_string(i));
        return (AllocationCount::ofThisThread().bytes - before) / kNodes;
    };
    EXPECT_LE(bytesOf(""), 400u - kHeap);
    const std::string prefix = "server room:rack number seven:";
    EXPECT_LE(bytesOf(prefix), 400u - kHeap + prefix.size());
}

// The tree is not asked to throw away what it was given for nothing.
TEST_F(RuvoRAEngine, AllocatesNothingToFindANode) {
    const std::string path = "a name longer than a short one:another name that is longer";
    const auto node = engine_.getNode(path);
    const std::size_t before = AllocationCount::ofThisThread().calls;
    for (int i = 0; i < 100; ++i) engine_.getNode(path);
    EXPECT_EQ(AllocationCount::ofThisThread().calls, before);
    engine_.getNode("c");
    EXPECT_GT(AllocationCount::ofThisThread().calls, before) << "that is counted at all";
}

TEST_F(RuvoRAEngine, MakesOneNodeForThreadsThatAskAtOnce) {
    for (int round = 0; round < 50; ++round) {
        const std::string path = "at once:" + std::to_string(round);
        std::vector<Engine::Node> nodes(8);
        {
            std::atomic<int> ready{0};
            std::vector<std::jthread> threads;
            for (auto& node : nodes) {
                threads.emplace_back([&] {
                    ++ready;
                    while (ready < 8) std::this_thread::yield();
                    node = engine_.getNode(path);
                });
            }
        }
        for (const auto& node : nodes) EXPECT_TRUE(node == nodes[0]);
    }
}

// ---- handles -----------------------------------------------------------------------

TEST_F(RuvoRAEngine, CountsHandlesAcrossAllNodes) {
    EXPECT_EQ(lock("a"), 1);
    EXPECT_EQ(lock("b"), 2);
    EXPECT_EQ(lock("a"), 0) << "what is refused takes no number";
    EXPECT_EQ(lock("a:b"), 3);
    unlock(2);
    EXPECT_EQ(lock("b"), 4) << "numbers are not used again";
    EXPECT_EQ(engine_.heldHandlesForTest(), 3u);
}

TEST_F(RuvoRAEngine, LocksANodeWithoutThoseBelowOrAboveIt) {
    EXPECT_EQ(lock("a"), 1);
    EXPECT_EQ(lock("a:b"), 2);
    EXPECT_EQ(lock("a:b:c"), 3);
    EXPECT_EQ(lock("a,b"), 0);
    unlock(1);
    EXPECT_EQ(lock("a:b"), 0);
    EXPECT_EQ(lock("a"), 4);
}

TEST_F(RuvoRAEngine, IgnoresHandlesThatItHasNotGivenOut) {
    EXPECT_EQ(lock("a"), 1);
    for (const int handle :
         {0, -1, 2, 4711, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(unlock(handle), 0) << handle;
    }
    EXPECT_TRUE(engine_.isLocked("a"));
    EXPECT_EQ(unlock(1), 0);
    EXPECT_FALSE(engine_.isLocked("a"));
    EXPECT_EQ(lock("a"), 2);
    EXPECT_EQ(unlock(1), 0) << "given back already";
    EXPECT_TRUE(engine_.isLocked("a"));
    EXPECT_EQ(events(), (Texts{"VornRAEvent:a=1", "VornRAEvent:a=0", "VornRAEvent:a=1"}));
}

TEST_F(RuvoRAEngine, KeepsALockWhenItIsStoppedAndStartedAgain) {
    EXPECT_TRUE(engine_.initialize());
    EXPECT_EQ(lock("a"), 1);
    EXPECT_TRUE(engine_.cleanup());
    EXPECT_TRUE(engine_.initialize());
    EXPECT_EQ(lock("a"), 0);
    EXPECT_EQ(unlock(1), 0);
    EXPECT_EQ(lock("a"), 2);
}

TEST_F(RuvoRAEngine, IsKnownAsArbiterWhileItLives) {
    auto& manager = VornMonitor::VornEventMonitorManager::getInstance();
    EXPECT_TRUE(manager.isKnown("Arbiter"));
    engine_.retire();
    EXPECT_FALSE(manager.isKnown("Arbiter"));
    engine_.retire();
}

// ---- events ------------------------------------------------------------------------

TEST_F(RuvoRAEngine, RaisesAnEventAChange) {
    lock("disk,0");
    lock("disk:0");
    unlock(1);
    unlock(1);
    lock("disk:0");
    EXPECT_EQ(events(),
              (Texts{"VornRAEvent:disk,0=1", "VornRAEvent:disk,0=0", "VornRAEvent:disk,0=1"}));
}

TEST_F(RuvoRAEngine, FillsItsEvents) {
    class Keeping : public VornNet::VornProxyDependent {
    public:
        Keeping() : VornProxyDependent("keeping", 1) {}
        bool checkEvent(const VornSupport::VornNotification& notification) override {
            const auto* event = RuvoService::RuvoNNEventNotification::from(notification);
            content = std::string(event->getSender()) + "|" + event->getEventName() + "|" +
                      std::string(event->getMessage()) + "|" + std::to_string(event->getDataSize());
            return false;
        }
        std::string content;

    protected:
        void addContent(VornNet::VornConnection&, const VornSupport::VornNotification&) override {}
    };
    const auto keeping = VornSupport::makeCounted<Keeping>();
    auto& container = VornNet::VornProxyDependentContainer::getInstance();
    container.add(keeping);
    lock("a:b");
    events();
    container.remove(*keeping);
    EXPECT_EQ(keeping->content, "udp:127.0.0.1|VornRAEvent:a:b|a:b|4");
}

TEST_F(RuvoRAEngine, DoesWithoutANotifier) {
    engine_.retire();
    Engine quiet(nullptr);
    Client client;
    client.sendString("RUVO_RA_LOCK").sendString("a").sendInt(0);
    quiet.handleClient(static_cast<VornNet::VornConnection&>(client));
    EXPECT_EQ(client.written(), (Texts{"int 1", "flush"}));
    quiet.unlock(1);
    EXPECT_EQ(quiet.lock("a"), 2);
}

// ---- the log -----------------------------------------------------------------------

TEST_F(RuvoRAEngine, PrintsItsTree) {
    engine_.getNode("b,c");
    engine_.getNode("a");
    const LogCapture log(9);
    engine_.printTree();
    const std::string text = "RANode::print: Node Name = ";
    EXPECT_EQ(log.texts(9),
              (Texts{text + "root", "  " + text + "a", "  " + text + "b", "    " + text + "b,c"}));
}

TEST_F(RuvoRAEngine, DoesNotWalkTheTreeBelowLevelNine) {
    for (int i = 0; i < 1000; ++i) engine_.getNode(std::to_string(i));
    const LogCapture log(8);
    const std::size_t before = AllocationCount::ofThisThread().calls;
    engine_.printTree();
    EXPECT_EQ(AllocationCount::ofThisThread().calls, before);
    EXPECT_TRUE(log.records().empty());
}

TEST_F(RuvoRAEngine, PrintsLongNamesShort) {
    const std::string path = deepPath(5000);
    engine_.retire();
    Engine engine(nullptr);
    engine.getNode(path);
    const LogCapture log(9);
    engine.printTree();
    const auto texts = log.texts(9);
    ASSERT_EQ(texts.size(), 5001u);
    EXPECT_TRUE(texts[512].ends_with("= " + path.substr(0, 1023)));
    EXPECT_TRUE(texts[5000].ends_with("= " + path.substr(0, 1024) + "...")) << texts[5000];
}
