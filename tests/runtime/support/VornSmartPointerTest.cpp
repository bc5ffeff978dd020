#include "runtime/support/VornSmartPointer.h"

#include "runtime/support/VornObjectBase.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

using namespace VornSupport;

namespace {

int alive = 0;

class Thing : public virtual VornObjectBase {
public:
    explicit Thing(std::string text = "") : text_(std::move(text)) { ++alive; }
    ~Thing() override { --alive; }
    const std::string& text() const { return text_; }

private:
    std::string text_;
};

class Special : public Thing {
public:
    using Thing::Thing;
};

using Pointer = VornSmartPointer<Thing>;

class VornSmartPointerTest : public testing::Test {
protected:
    void SetUp() override { alive = 0; }
    void TearDown() override { EXPECT_EQ(alive, 0) << "an object was not freed"; }
};

TEST_F(VornSmartPointerTest, HoldsNothingAtFirst) {
    const Pointer empty;
    EXPECT_FALSE(empty);
    EXPECT_TRUE(empty == nullptr);
    EXPECT_EQ(empty.get(), nullptr);
    const Pointer null = nullptr;
    EXPECT_TRUE(null == nullptr);
    const Pointer raw(static_cast<Thing*>(nullptr));
    EXPECT_FALSE(raw);
    EXPECT_TRUE(empty == raw);
}

TEST_F(VornSmartPointerTest, TakesAReferenceOfARawPointer) {
    auto* const thing = new Thing("a");
    const Pointer pointer(thing);
    EXPECT_EQ(thing->refCount(), 1u);
    EXPECT_EQ(pointer->text(), "a");
    EXPECT_EQ((*pointer).text(), "a");
    EXPECT_TRUE(pointer);
    EXPECT_TRUE(pointer != nullptr);
}

TEST_F(VornSmartPointerTest, ReleasesAtItsEnd) {
    auto* const thing = new Thing;
    thing->addRef();
    { const Pointer pointer(thing); }
    EXPECT_EQ(thing->refCount(), 1u);
    EXPECT_EQ(alive, 1);
    thing->release();
}

TEST_F(VornSmartPointerTest, SharesWithItsCopies) {
    const Pointer first = makeCounted<Thing>();
    {
        const Pointer second = first;
        EXPECT_EQ(first->refCount(), 2u);
        EXPECT_TRUE(first == second);
    }
    EXPECT_EQ(first->refCount(), 1u);
}

TEST_F(VornSmartPointerTest, MovesWithoutCounting) {
    Pointer first = makeCounted<Thing>();
    Thing* const thing = first.get();
    const Pointer second = std::move(first);
    EXPECT_EQ(second.get(), thing);
    EXPECT_EQ(thing->refCount(), 1u);
    EXPECT_FALSE(first);  // NOLINT: what a moved-from pointer holds is our promise
}

TEST_F(VornSmartPointerTest, LeavesTheCountWhenAssignedToItself) {
    Pointer pointer = makeCounted<Thing>();
    const Pointer& same = pointer;
    pointer = same;
    EXPECT_EQ(pointer->refCount(), 1u);
    Pointer& moved = pointer;
    pointer = std::move(moved);
    ASSERT_TRUE(pointer);
    EXPECT_EQ(pointer->refCount(), 1u);
    pointer = pointer.get();
    EXPECT_EQ(pointer->refCount(), 1u);
}

TEST_F(VornSmartPointerTest, LeavesTheCountWhenAssignedTheObjectItHolds) {
    Pointer first = makeCounted<Thing>();
    const Pointer second = first;
    first = second;
    EXPECT_EQ(first->refCount(), 2u);
    first = second.get();
    EXPECT_EQ(first->refCount(), 2u);
}

TEST_F(VornSmartPointerTest, ReleasesTheOldObjectWhenAssigned) {
    Pointer pointer = makeCounted<Thing>("old");
    const Pointer fresh = makeCounted<Thing>("new");
    pointer = fresh;
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(pointer->text(), "new");
    EXPECT_EQ(fresh->refCount(), 2u);
    pointer = new Thing("third");
    EXPECT_EQ(alive, 2);
    EXPECT_EQ(pointer->refCount(), 1u);
    EXPECT_EQ(fresh->refCount(), 1u);
    pointer = nullptr;
    EXPECT_FALSE(pointer);
    EXPECT_EQ(alive, 1);
}

TEST_F(VornSmartPointerTest, ReleasesTheOldObjectWhenMovedTo) {
    Pointer pointer = makeCounted<Thing>("old");
    pointer = makeCounted<Thing>("new");
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(pointer->text(), "new");
    EXPECT_EQ(pointer->refCount(), 1u);
}

TEST_F(VornSmartPointerTest, CountsRightWhenTheSameObjectIsMovedToIt) {
    Pointer first = makeCounted<Thing>();
    Pointer second = first;
    first = std::move(second);
    EXPECT_EQ(first->refCount(), 1u);
    EXPECT_FALSE(second);  // NOLINT
}

// The end of the old object takes along the last other way to the new one.
TEST_F(VornSmartPointerTest, MayBeAssignedWhatOnlyItsOldObjectHolds) {
    class Node : public Thing {
    public:
        Pointer next;
    };
    Pointer pointer(new Node);
    static_cast<Node&>(*pointer).next = makeCounted<Thing>("behind");
    pointer = static_cast<Node&>(*pointer).next;
    EXPECT_EQ(pointer->text(), "behind");
    EXPECT_EQ(pointer->refCount(), 1u);
    EXPECT_EQ(alive, 1);

    Pointer second(new Node);
    static_cast<Node&>(*second).next = makeCounted<Thing>("raw");
    second = static_cast<Node&>(*second).next.get();
    EXPECT_EQ(second->text(), "raw");

    Pointer third(new Node);
    static_cast<Node&>(*third).next = makeCounted<Thing>("moved");
    third = std::move(static_cast<Node&>(*third).next);
    EXPECT_EQ(third->text(), "moved");
    EXPECT_EQ(third->refCount(), 1u);
}

TEST_F(VornSmartPointerTest, ConvertsToBases) {
    const VornSmartPointer<Special> special = makeCounted<Special>("s");
    Pointer thing = special;
    EXPECT_EQ(special->refCount(), 2u);
    VornSmartPointer<VornObjectBase> base(thing);
    EXPECT_EQ(special->refCount(), 3u);
    thing = makeCounted<Special>("other");
    EXPECT_EQ(special->refCount(), 2u);
    base = nullptr;
    EXPECT_EQ(special->refCount(), 1u);
}

TEST_F(VornSmartPointerTest, ComparesByTheObject) {
    const Pointer first = makeCounted<Thing>("same");
    const Pointer second = makeCounted<Thing>("same");
    EXPECT_FALSE(first == second);
    EXPECT_TRUE(first != second);
    EXPECT_TRUE(first == first.get());
}

TEST_F(VornSmartPointerTest, LivesInContainers) {
    std::vector<Pointer> list;
    std::unordered_set<Pointer> set;
    for (int i = 0; i < 100; ++i) {
        list.push_back(makeCounted<Thing>(std::to_string(i)));
        set.insert(list.back());
        set.insert(list.back());
    }
    EXPECT_EQ(set.size(), 100u);
    for (const auto& pointer : list) EXPECT_EQ(pointer->refCount(), 2u);
    list.erase(list.begin(), list.begin() + 50);
    EXPECT_EQ(alive, 100);
    set.clear();
    EXPECT_EQ(alive, 50);
}

TEST_F(VornSmartPointerTest, IsAPlainPointerInSizeAndMoves) {
    EXPECT_EQ(sizeof(Pointer), sizeof(void*));
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<Pointer>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<Pointer>);
    EXPECT_FALSE((std::is_convertible_v<Pointer, bool>));
    EXPECT_FALSE((std::is_convertible_v<Pointer, Thing*>));
}

TEST_F(VornSmartPointerTest, GivesArgumentsOnToTheObject) {
    EXPECT_EQ(makeCounted<Thing>("text")->text(), "text");
    EXPECT_EQ(makeCounted<Thing>()->text(), "");
}

}  // namespace
