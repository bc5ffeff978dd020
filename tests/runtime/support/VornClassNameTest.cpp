#include "runtime/support/VornClassName.h"

#include "tests/runtime/support/CoreTestTools.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <utility>

using namespace VornSupport;

namespace Names {

struct Plain {};
template <class... T>
struct Many {
    struct Within {};
};
struct operatorLike {};
struct Calls {
    std::string operator()(int) const {
        struct InCall {};
        return classNameOf(typeid(InCall));
    }
    std::string operator>>(int) const {
        struct InShift {};
        return classNameOf(typeid(InShift));
    }
};

struct Root {
    virtual ~Root() = default;
};
struct Left : virtual Root {};
struct Right : virtual Root {};
struct Bottom : Left, private Right, Many<int> {};

template <int n>
struct Numbered {};

}  // namespace Names

namespace {

TEST(VornClassName, DropsNamespaces) {
    EXPECT_EQ(classNameOf(typeid(Names::Plain)), "Plain");
    EXPECT_EQ(classNameOf(typeid(std::exception)), "exception");
}

TEST(VornClassName, DropsTemplateArgumentsWhateverTheyHold) {
    EXPECT_EQ(classNameOf(typeid(Names::Many<>)), "Many");
    EXPECT_EQ(classNameOf(typeid(Names::Many<Names::Many<Names::Plain>, int (*)(Names::Plain)>)),
              "Many");
    EXPECT_EQ(classNameOf(typeid(std::string)), "basic_string");
    EXPECT_EQ(classNameOf(typeid(std::function<void(std::pair<int, Names::Plain>)>)), "function");
}

TEST(VornClassName, DropsOuterClassesWithTheirArguments) {
    EXPECT_EQ(classNameOf(typeid(Names::Many<Names::Plain, Names::Many<int>>::Within)), "Within");
}

TEST(VornClassName, IsNotMisledByOperators) {
    EXPECT_EQ(classNameOf(typeid(Names::operatorLike)), "operatorLike");
    EXPECT_EQ(Names::Calls()(1), "InCall");
    EXPECT_EQ(Names::Calls() >> 1, "InShift");
}

TEST(VornClassName, TellsBasicTypes) { EXPECT_EQ(classNameOf(typeid(int)), "int"); }

TEST(VornClassName, StaysTheSame) {
    const std::string first = classNameOf(typeid(Names::Plain));
    for (int i = 0; i < 10; ++i) EXPECT_EQ(classNameOf(typeid(Names::Plain)), first);
}

TEST(VornClassName, FindsEveryBase) {
    for (const char* name : {"Bottom", "Left", "Right", "Root", "Many"}) {
        EXPECT_TRUE(classIsA(typeid(Names::Bottom), name)) << name;
    }
    EXPECT_FALSE(classIsA(typeid(Names::Left), "Right"));
    EXPECT_FALSE(classIsA(typeid(Names::Root), "Bottom"));
    EXPECT_FALSE(classIsA(typeid(int), "Root"));
}

template <int... n>
std::set<std::string> namesOfAll(std::integer_sequence<int, n...>) {
    return {classNameOf(typeid(Names::Many<Names::Numbered<n>>))...};
}

// First look-ups of many types from many threads, a few of them at one moment.
TEST(VornClassName, MayBeAskedByManyThreads) {
    std::atomic<int> wrong{0};
    CoreTest::onThreads(8, [&](int) {
        const auto names = namesOfAll(std::make_integer_sequence<int, 200>());
        if (names != std::set<std::string>{"Many"}) ++wrong;
        if (!classIsA(typeid(Names::Bottom), "Root")) ++wrong;
    });
    EXPECT_EQ(wrong, 0);
}

}  // namespace
