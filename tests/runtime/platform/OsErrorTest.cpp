#include "runtime/platform/OsError.h"

#include "tests/runtime/platform/NativeProbe.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <type_traits>

using VornPlatform::OsCondition;
using VornPlatform::OsError;

namespace {

TEST(OsError, IsSuccessUntilACodeIsGiven) {
    const OsError none;
    EXPECT_FALSE(none);
    EXPECT_EQ(none.code(), 0);
    EXPECT_EQ(none.condition(), OsCondition::None);
    EXPECT_FALSE(OsError(0));
}

TEST(OsError, IsTrueWhenItFailed) {
    EXPECT_TRUE(OsError(1));
    EXPECT_TRUE(OsError(-1));
    EXPECT_EQ(OsError(77).code(), 77);
}

TEST(OsError, DoesNotTurnIntoANumberByItself) {
    EXPECT_FALSE((std::is_convertible_v<int, OsError>));
    EXPECT_FALSE((std::is_convertible_v<OsError, int>));
    EXPECT_FALSE((std::is_convertible_v<OsError, bool>));
}

TEST(OsError, MapsTheCodesOfTheSystemToConditions) {
    std::set<OsCondition> seen;
    for (const auto& known : NativeProbe::knownErrors()) {
        EXPECT_EQ(OsError(known.code).condition(), known.condition) << "code " << known.code;
        seen.insert(known.condition);
    }
    EXPECT_EQ(seen.size(), 15u) << "the list leaves a condition out";
}

TEST(OsError, HasATextOfOneLineForEveryCode) {
    for (const auto& known : NativeProbe::knownErrors()) {
        const std::string text = OsError(known.code).text();
        EXPECT_FALSE(text.empty()) << "code " << known.code;
        EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos) << text;
        EXPECT_NE(text.back(), ' ') << text;
    }
}

TEST(OsError, HasTextsThatDiffer) {
    std::set<std::string> texts;
    for (const auto& known : NativeProbe::knownErrors()) {
        if (known.condition == OsCondition::NotFound || known.condition == OsCondition::None ||
            known.condition == OsCondition::AccessDenied) {
            texts.insert(OsError(known.code).text());
        }
    }
    EXPECT_GE(texts.size(), 4u);
}

TEST(OsError, NamesTheNumberOfAnErrorThatTheSystemDoesNotKnow) {
    EXPECT_NE(OsError(99999).text().find("99999"), std::string::npos) << OsError(99999).text();
}

TEST(OsError, TellsTheLastErrorOfAFileCall) {
    NativeProbe::failToOpen();
    const OsError error = OsError::last();
    EXPECT_TRUE(error);
    EXPECT_EQ(error.condition(), OsCondition::NotFound) << error.text();
}

TEST(OsError, TellsTheLastErrorOfASocketCall) {
    NativeProbe::failOnSocket();
    const OsError error = OsError::lastSocket();
    EXPECT_TRUE(error);
    EXPECT_EQ(error.condition(), OsCondition::Closed) << error.text();
}

TEST(OsError, BelongsToTheThreadOfTheCall) {
    NativeProbe::failToOpen();
    std::thread([] { NativeProbe::failOnSocket(); }).join();
    // The join may leave an error of its own, but not the other thread's.
    EXPECT_NE(OsError::last().condition(), OsCondition::Closed);
}

TEST(OsError, KeepsItsValueWhenCopied) {
    const OsError first(5);
    OsError second = first;
    EXPECT_EQ(second.code(), 5);
    second = OsError();
    EXPECT_FALSE(second);
    EXPECT_TRUE(first);
}

}  // namespace
