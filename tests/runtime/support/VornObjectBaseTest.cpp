#include "runtime/support/VornObjectBase.h"

#include "runtime/platform/Environment.h"
#include "runtime/platform/ModuleLoader.h"
#include "runtime/support/VornSmartPointer.h"
#include "tests/runtime/support/CoreTestTools.h"
#include "tests/runtime/support/TestPlugin.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <string>
#include <type_traits>

using namespace VornSupport;

namespace Outer::Inner {

class Task : public virtual VornObjectBase {};
class ExecTask : public Task {};
class Named : public virtual VornObjectBase {};
class Both : public ExecTask, public Named {};

struct Holder {
    class Nested : public VornObjectBase {};
};

template <class A, int n>
class Box : public VornObjectBase {};

bool operator<(const Holder&, const Holder&);

}  // namespace Outer::Inner

namespace {

class Hidden : public VornObjectBase {};

class Watched : public VornObjectBase {
public:
    explicit Watched(std::atomic<int>& destroyed) : destroyed_(destroyed) {}
    ~Watched() override { ++destroyed_; }

private:
    std::atomic<int>& destroyed_;
};

TEST(VornObjectBase, StartsWithCountZero) {
    const VornObjectBase object;
    EXPECT_EQ(object.refCount(), 0u);
}

TEST(VornObjectBase, ReturnsTheNewCount) {
    VornObjectBase object;
    EXPECT_EQ(object.addRef(), 1u);
    EXPECT_EQ(object.addRef(), 2u);
    EXPECT_EQ(object.refCount(), 2u);
    EXPECT_EQ(object.release(), 1u);
    EXPECT_EQ(object.refCount(), 1u);
}

TEST(VornObjectBase, IsDestroyedByItsLastRelease) {
    std::atomic<int> destroyed{0};
    auto* const object = new Watched(destroyed);
    object->addRef();
    object->addRef();
    EXPECT_EQ(object->release(), 1u);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(object->release(), 0u);
    EXPECT_EQ(destroyed, 1);
}

TEST(VornObjectBase, CountsACopyAnew) {
    VornObjectBase object;
    object.addRef();
    object.addRef();
    const VornObjectBase copy(object);
    EXPECT_EQ(copy.refCount(), 0u);
    EXPECT_EQ(object.refCount(), 2u);
}

TEST(VornObjectBase, KeepsItsCountWhenAssignedTo) {
    VornObjectBase object;
    VornObjectBase other;
    object.addRef();
    other.addRef();
    other.addRef();
    object = other;
    EXPECT_EQ(object.refCount(), 1u);
    EXPECT_EQ(other.refCount(), 2u);
}

TEST(VornObjectBase, HasResultsOfTheAgreedTypes) {
    VornObjectBase object;
    EXPECT_TRUE((std::is_same_v<decltype(object.addRef()), unsigned long>));
    EXPECT_TRUE((std::is_same_v<decltype(object.release()), unsigned long>));
    EXPECT_TRUE((std::is_same_v<decltype(object.refCount()), unsigned long>));
}

TEST(VornObjectBase, CountsExactlyUnderEightThreads) {
    std::atomic<int> destroyed{0};
    const VornSmartPointer<Watched> object = makeCounted<Watched>(destroyed);
    CoreTest::onThreads(8, [&](int) {
        for (int i = 0; i < 50'000; ++i) {
            const VornSmartPointer<Watched> copy = object;
            copy->addRef();
            copy->release();
        }
    });
    EXPECT_EQ(object->refCount(), 1u);
    EXPECT_EQ(destroyed, 0);
}

TEST(VornObjectBase, IsDestroyedOnceByTheLastOfEightThreads) {
    for (int round = 0; round < 100; ++round) {
        std::atomic<int> destroyed{0};
        std::atomic<int> zeros{0};
        auto* const object = new Watched(destroyed);
        for (int i = 0; i < 8; ++i) object->addRef();
        CoreTest::onThreads(8, [&](int) {
            if (object->release() == 0) ++zeros;
        });
        ASSERT_EQ(destroyed, 1);
        ASSERT_EQ(zeros, 1);
    }
}

TEST(VornObjectBase, MakesWhatWasWrittenBeforeAReleaseSeenByTheDestructor) {
    class Sum : public VornObjectBase {
    public:
        explicit Sum(int& total) : total_(total) {}
        ~Sum() override {
            for (const int part : parts) total_ += part;
        }
        int parts[8] = {};

    private:
        int& total_;
    };
    for (int round = 0; round < 100; ++round) {
        int total = 0;
        auto* const object = new Sum(total);
        for (int i = 0; i < 8; ++i) object->addRef();
        CoreTest::onThreads(8, [&](int i) {
            object->parts[i] = 1 << i;
            object->release();
        });
        ASSERT_EQ(total, 255);
    }
}

TEST(VornObjectBase, TellsTheRunTimeClassWithoutItsNamespaces) {
    EXPECT_EQ(VornObjectBase().getClassName(), "VornObjectBase");
    EXPECT_EQ(Outer::Inner::ExecTask().getClassName(), "ExecTask");
    EXPECT_EQ(Hidden().getClassName(), "Hidden");
    const Outer::Inner::Both both;
    const VornObjectBase& base = both;
    EXPECT_EQ(base.getClassName(), "Both");
}

TEST(VornObjectBase, TellsTheClassWithoutOuterClassesAndTemplateArguments) {
    EXPECT_EQ(Outer::Inner::Holder::Nested().getClassName(), "Nested");
    EXPECT_EQ((Outer::Inner::Box<Outer::Inner::Task, 3>().getClassName()), "Box");
    EXPECT_EQ((Outer::Inner::Box<void (*)(Outer::Inner::Box<int, 1>), -1>().getClassName()), "Box");
}

TEST(VornObjectBase, TellsTheNameOfAClassInsideAFunction) {
    class Local : public VornObjectBase {};
    EXPECT_EQ(Local().getClassName(), "Local");
    const auto made = [](auto) {
        class InLambda : public VornObjectBase {};
        return InLambda().getClassName();
    };
    EXPECT_EQ(made(1), "InLambda");
}

std::string nameFromComparison;

TEST(VornObjectBase, TellsTheNameOfAClassInsideAnOperator) {
    static_cast<void>(Outer::Inner::Holder() < Outer::Inner::Holder());
    EXPECT_EQ(nameFromComparison, "InComparison");
}

TEST(VornObjectBase, ChangesItsClassWhileItIsBuilt) {
    class Base : public VornObjectBase {
    public:
        explicit Base(std::string& name) { name = getClassName(); }
    };
    class Derived : public Base {
    public:
        using Base::Base;
    };
    std::string inConstructor;
    EXPECT_EQ(Derived(inConstructor).getClassName(), "Derived");
    EXPECT_EQ(inConstructor, "Base");
}

TEST(VornObjectBase, IsOfItsOwnClassAndItsBases) {
    const Outer::Inner::Both both;
    for (const char* name : {"Both", "ExecTask", "Task", "Named", "VornObjectBase"}) {
        EXPECT_TRUE(both.isA(name)) << name;
    }
}

TEST(VornObjectBase, IsNotOfOtherClasses) {
    const Outer::Inner::ExecTask task;
    for (const char* name : {"Both", "Named", "", "exectask", "Exec", "Task ", "ExecTaskX",
                             "Outer::Inner::ExecTask", "std::exception"}) {
        EXPECT_FALSE(task.isA(name)) << name;
    }
    EXPECT_FALSE(task.isA(std::string("ExecTask\0", 9)));
}

// The name and the bases of a class that only a library loaded at run time
// knows, hidden in an unnamed namespace there.
TEST(VornObjectBase, TellsTheNamesOfClassesOfALibraryLoadedAtRunTime) {
    for (int round = 0; round < 3; ++round) {
        VornPlatform::ModuleLoader library;
        std::string error;
        ASSERT_TRUE(library.open(VornPlatform::executableFolder() + '/' +
                                     VornPlatform::moduleFileName("support_core_plugin"),
                                 error))
            << error;
        auto* const make = library.function<MakePlugInObject>(kMakePlugInObject);
        ASSERT_NE(make, nullptr);
        bool destroyed = false;
        {
            const VornSmartPointer<VornObjectBase> object(make(&destroyed));
            EXPECT_EQ(object->getClassName(), "PlugInTask");
            EXPECT_TRUE(object->isA("PlugInTask"));
            EXPECT_TRUE(object->isA("PlugInBase"));
            EXPECT_TRUE(object->isA("VornObjectBase"));
            EXPECT_FALSE(object->isA("Hidden"));
        }
        EXPECT_TRUE(destroyed);
    }
}

}  // namespace

bool Outer::Inner::operator<(const Holder&, const Holder&) {
    class InComparison : public VornObjectBase {};
    nameFromComparison = InComparison().getClassName();
    return false;
}
