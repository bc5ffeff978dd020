#include "runtime/support/VornTreeNode.h"

#include "runtime/support/VornThread.h"
#include "tests/runtime/platform/NativeProbe.h"
#include "tests/runtime/support/AllocationCount.h"
#include "tests/runtime/support/CoreTestTools.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace VornSupport;
using namespace std::string_view_literals;
using CoreTest::LogCapture;

namespace {

constexpr int kDeepest = 500'000;
constexpr int kDeep = 100'000;  // far too deep for a call a level, too

using NodePointer = VornSmartPointer<VornTreeNode>;

NodePointer node(const std::string& name) { return makeCounted<VornTreeNode>(name); }

std::string deepPath(int depth) {
    std::string path;
    for (int i = 0; i < depth; ++i) path += i % 2 == 0 ? "n:" : "n,";
    return path;
}

// A root that makes nodes of its kind and notes the paths it was given.
class NotingNode : public VornTreeNode {
public:
    using VornTreeNode::VornTreeNode;

    mutable std::vector<std::string> made;
    mutable std::vector<const VornTreeNode*> madeFor;

protected:
    NodePointer makeNode(std::string_view path, const VornTreeNode& child) const override {
        made.emplace_back(path);
        madeFor.push_back(&child);
        return makeCounted<VornTreeNode>("made " + std::string(path));
    }
};

TEST(VornTreeNode, HasAName) {
    EXPECT_EQ(VornTreeNode("root").getName(), "root");
    EXPECT_EQ(VornTreeNode("").getName(), "");
    EXPECT_EQ(VornTreeNode(std::string("a\0b", 3)).getName().size(), 3u);
}

TEST(VornTreeNode, PutsAChildBelowItself) {
    VornTreeNode root("root");
    const NodePointer child = node("a");
    EXPECT_TRUE(root.add(child, "a") == child);
    EXPECT_TRUE(root.find("a") == child);
    EXPECT_EQ(child->refCount(), 2u);
}

TEST(VornTreeNode, ReturnsTheNodeThatStandsThereAlready) {
    VornTreeNode root("root");
    const NodePointer first = node("first");
    const NodePointer second = node("second");
    root.add(first, "a:b");
    EXPECT_TRUE(root.add(second, "a:b") == first);
    EXPECT_EQ(second->refCount(), 1u);
    EXPECT_TRUE(root.find("a:b") == first);
}

TEST(VornTreeNode, TakesEitherSeparator) {
    VornTreeNode root("root");
    const NodePointer child = node("c");
    root.add(child, "a:b,c");
    for (const char* path : {"a:b:c", "a,b,c", "a,b:c", "a:b,c"}) {
        EXPECT_TRUE(root.find(path) == child) << path;
        EXPECT_TRUE(root.add(node("other"), path) == child) << path;
    }
}

TEST(VornTreeNode, PassesOverEmptyComponents) {
    VornTreeNode root("root");
    const NodePointer child = node("b");
    root.add(child, ":,a,::b,");
    for (const char* path : {"a:b", ":a:b", "a::b", "a,:b:::", ",,,a,b"}) {
        EXPECT_TRUE(root.find(path) == child) << path;
    }
}

TEST(VornTreeNode, ReturnsNullForAPathThatNamesItself) {
    VornTreeNode root("root");
    const NodePointer child = node("a");
    for (const char* path : {"", ":", ",", ":,:,,"}) {
        EXPECT_TRUE(root.add(child, path) == nullptr) << path;
        EXPECT_TRUE(root.find(path) == nullptr) << path;
    }
    EXPECT_TRUE(root.add(child, static_cast<const char*>(nullptr)) == nullptr);
    EXPECT_TRUE(root.add(child, std::string_view()) == nullptr);
    EXPECT_EQ(child->refCount(), 1u);
}

TEST(VornTreeNode, AddsNothingForANullChild) {
    VornTreeNode root("root");
    EXPECT_TRUE(root.add(nullptr, "a:b") == nullptr);
    EXPECT_TRUE(root.find("a") == nullptr) << "nor the nodes on the way";
    const NodePointer child = node("b");
    root.add(child, "a:b");
    EXPECT_TRUE(root.add(nullptr, "a:b") == child);
}

TEST(VornTreeNode, FindsOnlyWholePaths) {
    VornTreeNode root("root");
    root.add(node("c"), "aa:bb:cc");
    for (const char* path : {"a", "aaa", "bb", "aa:b", "aa:cc", "aa:bb:cc:dd", "AA", "aa bb"}) {
        EXPECT_TRUE(root.find(path) == nullptr) << path;
    }
    EXPECT_TRUE(root.find("aa"));
    EXPECT_TRUE(root.find("aa:bb"));
}

TEST(VornTreeNode, KeepsTheChildsOwnNameWhateverThePathCallsIt) {
    VornTreeNode root("root");
    root.add(node("its own name"), "x");
    EXPECT_EQ(root.find("x")->getName(), "its own name");
}

TEST(VornTreeNode, NamesTheNodesOnTheWayByTheirComponent) {
    VornTreeNode root("root");
    root.add(node("c"), ",alpha::beta,c");
    EXPECT_EQ(root.find("alpha")->getName(), "alpha");
    EXPECT_EQ(root.find("alpha:beta")->getName(), "beta");
}

TEST(VornTreeNode, AsksForTheNodesOnTheWayByTheirPathAsRequested) {
    NotingNode root("root");
    root.add(node("c"), ":a,,b:c");
    EXPECT_EQ(root.made, (std::vector<std::string>{":a", ":a,,b"}));
    root.add(node("d"), "a:b:x:d:");
    EXPECT_EQ(root.made, (std::vector<std::string>{":a", ":a,,b", "a:b:x"}));
    EXPECT_EQ(root.find("a:b:x")->getName(), "made a:b:x");
    root.add(node("e"), "e");
    EXPECT_EQ(root.made.size(), 3u) << "a child alone has nobody on its way";
    const NodePointer goal = node("g");
    root.add(goal, "f:g");
    EXPECT_EQ(root.madeFor.back(), goal.get());
}

TEST(VornTreeNode, GivesUpWhenANodeOnTheWayIsRefused) {
    class Refusing : public VornTreeNode {
    public:
        using VornTreeNode::VornTreeNode;

    protected:
        NodePointer makeNode(std::string_view path, const VornTreeNode& child) const override {
            return path == "a:b" ? nullptr : VornTreeNode::makeNode(path, child);
        }
    };
    Refusing root("root");
    const NodePointer child = node("c");
    EXPECT_TRUE(root.add(child, "a:b:c") == nullptr);
    EXPECT_TRUE(root.find("a:b") == nullptr);
    EXPECT_TRUE(root.add(child, "a:c") == child);
}

TEST(VornTreeNode, TakesAnyBytesInAPath) {
    VornTreeNode root("root");
    const auto withZero = "a\0b:\0,\xff\xfe"sv;
    const NodePointer child = node("z");
    EXPECT_TRUE(root.add(child, withZero) == child);
    EXPECT_TRUE(root.find(withZero) == child);
    EXPECT_TRUE(root.find("a") == nullptr);
    EXPECT_TRUE(root.find("a\0b"sv));
    EXPECT_TRUE(root.find("a\0b:\0"sv));
    EXPECT_TRUE(root.add(node("plain"), "a\0b") != nullptr) << "a C string ends at the zero";
    EXPECT_TRUE(root.find("a"));
}

// Some stand under their own names and some under others.
TEST(VornTreeNode, FindsEachOfThousandsOfChildren) {
    constexpr int kMany = 5000;
    const auto nameOf = [](int i) { return "child " + std::to_string(i); };
    VornTreeNode root("root");
    std::vector<NodePointer> children;
    for (int i = 0; i < kMany; ++i) {
        children.push_back(node(i % 3 == 0 ? "another name" : nameOf(i)));
        ASSERT_TRUE(root.add(children.back(), nameOf(i)) == children.back());
        ASSERT_TRUE(root.add(node(nameOf(i)), nameOf(i)) == children.back()) << "the first stays";
    }
    EXPECT_TRUE(root.find("another name") == nullptr);
    EXPECT_TRUE(root.find(nameOf(kMany)) == nullptr);
    const VornTreeNode copy(root);
    for (int i = 0; i < kMany; ++i) {
        const NodePointer& child = children[static_cast<std::size_t>(i)];
        ASSERT_TRUE(root.find(nameOf(i)) == child) << i;
        ASSERT_TRUE(copy.find(nameOf(i)) == child) << i;
    }
}

TEST(VornTreeNode, LetsOneChildStandInSeveralPlaces) {
    VornTreeNode root("root");
    const NodePointer child = node("x");
    for (const char* path : {"x", "y", "a:x", "a:b:y"}) root.add(child, path);
    for (const char* path : {"x", "y", "a:x", "a:b:y"}) EXPECT_TRUE(root.find(path) == child);
    EXPECT_EQ(child->refCount(), 5u);
}

TEST(VornTreeNode, SharesTheChildrenOfTheMomentWithItsCopy) {
    VornTreeNode original("original");
    original.add(node("b"), "a:b");
    const VornTreeNode copy(original);
    EXPECT_EQ(copy.getName(), "original");
    EXPECT_EQ(copy.refCount(), 0u);
    EXPECT_TRUE(copy.find("a") == original.find("a"));
    original.add(node("later"), "later");
    EXPECT_TRUE(copy.find("later") == nullptr);
    original.add(node("c"), "a:c");
    EXPECT_TRUE(copy.find("a:c")) << "the child itself is shared";
}

TEST(VornTreeNode, ReplacesNameAndChildrenWhenAssigned) {
    VornTreeNode first("first");
    VornTreeNode second("second");
    const NodePointer old = node("old");
    first.add(old, "old");
    second.add(node("new"), "new");
    first = second;
    EXPECT_EQ(first.getName(), "second");
    EXPECT_TRUE(first.find("old") == nullptr);
    EXPECT_TRUE(first.find("new") == second.find("new"));
    EXPECT_EQ(old->refCount(), 1u);

    const VornTreeNode& same = first;
    first = same;
    EXPECT_TRUE(first.find("new"));
}

TEST(VornTreeNode, MayBeAssignedANodeOfItsOwnTree) {
    VornTreeNode root("root");
    root.add(node("c"), "a:b:c");
    root = *root.find("a:b");
    EXPECT_EQ(root.getName(), "b");
    EXPECT_TRUE(root.find("c"));
    EXPECT_TRUE(root.find("a") == nullptr);
}

TEST(VornTreeNode, LeavesNodesAloneThatOthersHold) {
    NodePointer kept;
    {
        VornTreeNode root("root");
        root.add(node("d"), "a:b:c:d");
        kept = root.find("a:b");
    }
    EXPECT_EQ(kept->refCount(), 1u);
    EXPECT_TRUE(kept->find("c:d"));
}

TEST(VornTreeNode, FreesEveryNode) {
    class Counted : public VornTreeNode {
    public:
        explicit Counted(int& alive) : VornTreeNode("counted"), alive_(alive) { ++alive_; }
        ~Counted() override { --alive_; }

    private:
        int& alive_;
    };
    int alive = 0;
    {
        VornTreeNode root("root");
        for (int i = 0; i < 1000; ++i) {
            const std::string top = "t" + std::to_string(i % 10);
            root.add(makeCounted<Counted>(alive), top + ":" + std::to_string(i));
        }
        EXPECT_EQ(alive, 1000);
    }
    EXPECT_EQ(alive, 0);
}

TEST(VornTreeNodePrint, WritesALineANodeByNameAndDepth) {
    const LogCapture log(9);
    VornTreeNode root("root");
    root.add(node("zebra"), "zebra");
    root.add(node("inner"), "apple:inner");
    root.add(node("2"), "apple:2");
    root.add(node("mango"), "mango");
    root.print(0);
    const std::string text = "VornTreeNode::print: Node Name = ";
    EXPECT_EQ(CoreTest::textsWith(log, "Node Name"),
              (std::vector<std::string>{text + "root", "  " + text + "apple", "    " + text + "2",
                                        "    " + text + "inner", "  " + text + "mango",
                                        "  " + text + "zebra"}));
    for (const auto& record : CoreTest::recordsWith(log, "Node Name")) EXPECT_EQ(record.level, 9);
}

TEST(VornTreeNodePrint, OrdersChildrenByTheNamesUnderWhichTheyStand) {
    const LogCapture log(9);
    VornTreeNode root("root");
    root.add(node("c"), "c");
    root.add(node("zz"), "b");
    root.add(node("d"), "d");
    root.add(node("yy"), "a");
    root.print(0);
    const std::string text = "VornTreeNode::print: Node Name = ";
    EXPECT_EQ(CoreTest::textsWith(log, "Node Name"),
              (std::vector<std::string>{text + "root", "  " + text + "yy", "  " + text + "zz",
                                        "  " + text + "c", "  " + text + "d"}));
}

TEST(VornTreeNodePrint, BeginsAtTheColumnGiven) {
    const LogCapture log(9);
    VornTreeNode root("root");
    root.add(node("a"), "a");
    root.print(3);
    root.print(-5);
    const std::string text = "VornTreeNode::print: Node Name = ";
    EXPECT_EQ(CoreTest::textsWith(log, "Node Name"),
              (std::vector<std::string>{"   " + text + "root", "     " + text + "a", text + "root",
                                        "  " + text + "a"}));
}

class PrintedNode : public VornTreeNode {
public:
    using VornTreeNode::VornTreeNode;
    static inline std::vector<int> columns;

protected:
    void printGuts(int indent) const override { columns.push_back(indent); }
    NodePointer makeNode(std::string_view, const VornTreeNode&) const override {
        return makeCounted<PrintedNode>("on the way");
    }
};

TEST(VornTreeNodePrint, AsksEachNodeForItsLineWithinTheMostIndent) {
    const LogCapture log(9);
    PrintedNode::columns.clear();
    PrintedNode root("root");
    root.add(makeCounted<PrintedNode>("last"), deepPath(60));
    root.print(0);
    ASSERT_EQ(PrintedNode::columns.size(), 61u);
    for (int i = 0; i < 61; ++i) {
        EXPECT_EQ(PrintedNode::columns[static_cast<std::size_t>(i)],
                  std::min(2 * i, VornTreeNode::kMostIndent));
    }
}

TEST(VornTreeNodePrint, DoesNotWalkBelowLevelNine) {
    const LogCapture log(8);
    PrintedNode::columns.clear();
    PrintedNode("root").print(0);
    EXPECT_TRUE(PrintedNode::columns.empty());
}

TEST(VornTreeNodePrint, LetsALineAddNodes) {
    class Growing : public VornTreeNode {
    public:
        using VornTreeNode::VornTreeNode;

    protected:
        void printGuts(int indent) const override {
            const_cast<Growing*>(this)->add(node("grown"), "grown");
            VornTreeNode::printGuts(indent);
        }
    };
    const LogCapture log(9);
    Growing("growing").print(0);
    EXPECT_EQ(CoreTest::textsWith(log, "Node Name").size(), 2u)
        << "no lock is held while a line is written";
}

// Runs on a thread with the small stack of a client.
void onSmallStack(std::function<void()> body) {
    class Small : public VornThread {
    public:
        explicit Small(std::function<void()> b) : VornThread("Small"), body_(std::move(b)) {
            setStackSize(kClientStack);
        }

    protected:
        int run() override {
            body_();
            return 0;
        }

    private:
        std::function<void()> body_;
    } thread(std::move(body));
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    EXPECT_EQ(thread.getExitCode(), 0);
}

TEST(VornTreeNodeDepth, IsNotLimitedByTheStack) {
    onSmallStack([] {
        const std::string path = deepPath(kDeepest);
        const NodePointer last = node("last");
        {
            VornTreeNode root("root");
            EXPECT_TRUE(root.add(last, path) == last);
            EXPECT_TRUE(root.add(node("other"), path) == last);
            EXPECT_TRUE(root.find(path) == last);
            EXPECT_TRUE(root.find(path + "x") == nullptr);
        }
        EXPECT_EQ(last->refCount(), 1u);
    });
}

TEST(VornTreeNodeDepth, DoesNotMatterForPrinting) {
    onSmallStack([] {
        const LogCapture log(9);
        PrintedNode::columns.clear();
        PrintedNode root("root");
        root.add(makeCounted<PrintedNode>("last"), deepPath(kDeep));
        root.print(0);
        EXPECT_EQ(PrintedNode::columns.size(), kDeep + 1u);
    });
}

TEST(VornTreeNodeDepth, DoesNotMatterForPartsThatOutliveTheRest) {
    onSmallStack([] {
        const std::string half = deepPath(kDeep / 2);
        auto root = makeCounted<VornTreeNode>("root");
        root->add(node("last"), half + half);
        NodePointer middle = root->find(half);
        VornTreeNode copy(*root);
        root = nullptr;
        EXPECT_TRUE(copy.find(half) == middle);
        copy = VornTreeNode("empty");
        EXPECT_EQ(middle->refCount(), 1u);
        EXPECT_TRUE(middle->find(half));
        middle = nullptr;
    });
}

TEST(VornTreeNodeMemory, IsAtMostFourHundredBytesANode) {
    VornTreeNode root("root");
    constexpr int kNodes = 10'000;
    std::string path;
    path.reserve(40);
    const std::size_t before = AllocationCount::ofThisThread().bytes;
    for (int i = 0; i < kNodes; ++i) {
        path = "t" + std::to_string(i % 100) + ":" + std::to_string(i);
        root.add(makeCounted<VornTreeNode>("short"), path);
    }
    const std::size_t bytes = AllocationCount::ofThisThread().bytes - before;
    EXPECT_LE(bytes / kNodes, 400u);
    if (NativeProbe::replacesAllocationEverywhere()) {
        EXPECT_GE(bytes / kNodes, sizeof(VornTreeNode));
    }
    // What the object and its place in its parent's table come to, anywhere.
    using Entry = std::pair<const std::string, NodePointer>;
    EXPECT_LE(sizeof(VornTreeNode) + sizeof(Entry) + 4 * sizeof(void*), 400u);
}

TEST(VornTreeNodeMemory, IsNotTouchedForWhatExists) {
    VornTreeNode root("root");
    const std::string path = "a rather long first component:and a second one,and a third";
    const NodePointer child = node("child");
    std::size_t before = AllocationCount::ofThisThread().calls;
    root.add(child, path);
    if (NativeProbe::replacesAllocationEverywhere()) {
        EXPECT_GT(AllocationCount::ofThisThread().calls, before);
    }
    before = AllocationCount::ofThisThread().calls;
    for (int i = 0; i < 100; ++i) {
        root.add(child, path);
        root.add(child, path.c_str());
        root.find(path);
    }
    EXPECT_EQ(AllocationCount::ofThisThread().calls, before);
}

TEST(VornTreeNodeThreads, PutOneNodeAtEachPlace) {
    VornTreeNode root("root");
    constexpr int kPaths = 500;
    std::vector<std::vector<NodePointer>> seen(8, std::vector<NodePointer>(kPaths));
    CoreTest::onThreads(8, [&](int thread) {
        for (int i = 0; i < kPaths; ++i) {
            const int n = (i + thread * 61) % kPaths;
            const std::string path = std::to_string(n % 7) + ":" + std::to_string(n % 31) + "," +
                                     std::to_string(n);
            seen[static_cast<std::size_t>(thread)][static_cast<std::size_t>(n)] =
                root.add(node(std::to_string(n)), path);
            EXPECT_TRUE(root.find(path));
        }
    });
    for (const auto& one : seen) EXPECT_TRUE(one == seen[0]);
    for (int n = 0; n < kPaths; ++n) {
        EXPECT_EQ(seen[0][static_cast<std::size_t>(n)]->getName(), std::to_string(n));
        EXPECT_EQ(seen[0][static_cast<std::size_t>(n)]->refCount(), 9u);
    }
}

TEST(VornTreeNodeThreads, MayPrintWhileOthersAdd) {
    const LogCapture log(9);
    VornTreeNode root("root");
    CoreTest::onThreads(4, [&](int thread) {
        for (int i = 0; i < 100; ++i) {
            if (thread == 0) {
                if (i % 10 == 0) root.print(0);
            } else {
                root.add(node("x"), std::to_string(thread) + ":" + std::to_string(i));
            }
        }
    });
    EXPECT_TRUE(root.find("3:99"));
}

}  // namespace
