#include "runtime/support/VornObjectFactory.h"

#include "tests/runtime/support/CoreTestTools.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>

using namespace VornSupport;

namespace {

class RUVO_XX_CREATE : public VornObjectBase {};
class RUVO_XX_DELETE : public VornObjectBase {};

TEST(VornObjectFactory, MakesNothingWhileEmpty) {
    const VornObjectFactory factory;
    EXPECT_TRUE(factory.construct("RUVO_XX_CREATE") == nullptr);
    EXPECT_TRUE(factory.construct("") == nullptr);
}

TEST(VornObjectFactory, MakesTheClassOfTheName) {
    VornObjectFactory factory;
    factory.add("RUVO_XX_CREATE", &createObject<RUVO_XX_CREATE>);
    factory.add("RUVO_XX_DELETE", &createObject<RUVO_XX_DELETE>);
    EXPECT_EQ(factory.construct("RUVO_XX_CREATE")->getClassName(), "RUVO_XX_CREATE");
    EXPECT_EQ(factory.construct("RUVO_XX_DELETE")->getClassName(), "RUVO_XX_DELETE");
}

TEST(VornObjectFactory, MakesANewObjectEachTime) {
    VornObjectFactory factory;
    factory.add("X", &createObject<RUVO_XX_CREATE>);
    const auto first = factory.construct("X");
    const auto second = factory.construct("X");
    EXPECT_FALSE(first == second);
    EXPECT_EQ(first->refCount(), 1u);
    EXPECT_EQ(second->refCount(), 1u);
}

TEST(VornObjectFactory, WantsTheExactName) {
    VornObjectFactory factory;
    factory.add("RUVO_XX_CREATE", &createObject<RUVO_XX_CREATE>);
    for (const char* name : {"ruvo_xx_create", "Ruvo_XX_Create", "RUVO_XX_CREAT", "RUVO_XX_CREATE ",
                             " RUVO_XX_CREATE", "RUVO_XX_CREATES", ""}) {
        EXPECT_TRUE(factory.construct(name) == nullptr) << name;
    }
    EXPECT_TRUE(factory.construct(std::string("RUVO_XX_CREATE\0", 15)) == nullptr);
}

TEST(VornObjectFactory, ReplacesTheCreatorOfAName) {
    VornObjectFactory factory;
    factory.add("X", &createObject<RUVO_XX_CREATE>);
    factory.add("X", &createObject<RUVO_XX_DELETE>);
    EXPECT_EQ(factory.construct("X")->getClassName(), "RUVO_XX_DELETE");
}

TEST(VornObjectFactory, TakesAnyTextAsName) {
    VornObjectFactory factory;
    const std::string withZero("a\0b", 3);
    factory.add(withZero, &createObject<RUVO_XX_CREATE>);
    factory.add("", &createObject<RUVO_XX_DELETE>);
    EXPECT_TRUE(factory.construct("a") == nullptr);
    EXPECT_EQ(factory.construct(withZero)->getClassName(), "RUVO_XX_CREATE");
    EXPECT_EQ(factory.construct("")->getClassName(), "RUVO_XX_DELETE");
}

TEST(VornObjectFactory, PassesOnACreatorsNull) {
    VornObjectFactory factory;
    factory.add("X", []() -> VornObjectBase* { return nullptr; });
    EXPECT_TRUE(factory.construct("X") == nullptr);
}

TEST(VornObjectFactory, PassesOnACreatorsException) {
    VornObjectFactory factory;
    factory.add("X", []() -> VornObjectBase* { throw std::string("no"); });
    EXPECT_THROW(factory.construct("X"), std::string);
}

TEST(VornObjectFactory, IsReadByManyThreadsAtOnce) {
    VornObjectFactory factory;
    for (int i = 0; i < 100; ++i) {
        factory.add("C" + std::to_string(i), i % 2 == 0 ? &createObject<RUVO_XX_CREATE>
                                                        : &createObject<RUVO_XX_DELETE>);
    }
    std::atomic<int> wrong{0};
    CoreTest::onThreads(8, [&](int) {
        for (int i = 0; i < 3000; ++i) {
            const int n = i % 101;  // the last one is unknown
            const auto object = factory.construct("C" + std::to_string(n));
            if (n == 100 ? bool(object)
                         : !object || object->isA("RUVO_XX_CREATE") != (n % 2 == 0)) {
                ++wrong;
            }
        }
    });
    EXPECT_EQ(wrong, 0);
}

}  // namespace
