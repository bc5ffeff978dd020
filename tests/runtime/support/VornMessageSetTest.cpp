#include "runtime/support/VornMessageSet.h"

#include "runtime/platform/Environment.h"
#include "runtime/support/VornException.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>

using namespace VornSupport;
using VornPlatform::getEnv;
using VornPlatform::setEnv;

namespace {

void expectLocale(const std::string& name, const std::string& language, const std::string& region) {
    const VornLocale locale(name);
    EXPECT_EQ(locale.getLanguage(), language) << name;
    EXPECT_EQ(locale.getRegion(), region) << name;
}

TEST(VornLocale, ReadsWhatSystemsWrite) {
    expectLocale("de", "de", "");
    expectLocale("de_DE", "de", "DE");
    expectLocale("de-AT", "de", "AT");
    expectLocale("de_DE.UTF-8", "de", "DE");
    expectLocale("sr_RS@latin", "sr", "RS");
    expectLocale("DE_de", "de", "DE");
    expectLocale("es-419", "es", "419");
    expectLocale("zh-Hans-CN", "zh", "");
    expectLocale("de.UTF-8", "de", "");
}

TEST(VornLocale, ChoosesNoLanguageFromAnythingElse) {
    for (const char* name : {"", "C", "POSIX", "C.UTF-8", "_DE", ".", "english", "d", "../..", "d/",
                             "\xC3\xA4\xC3\xB6"}) {
        expectLocale(name, "", "");
    }
    expectLocale("de_../../x", "de", "");
    expectLocale("de_/", "de", "");
}

TEST(VornLocaleFactory, TakesTheLanguageOfTheEnvironment) {
    const auto before = getEnv("LC_ALL");
    setEnv("LC_ALL", "fr_CA.UTF-8");
    for (const bool ofUser : {true, false}) {
        const VornLocale locale = VornLocaleFactory::getDefaultLocale(ofUser);
        EXPECT_EQ(locale.getLanguage(), "fr");
        EXPECT_EQ(locale.getRegion(), "CA");
    }
    setEnv("LC_ALL", before);
}

class VornMessageSetTest : public testing::Test {
protected:
    void write(std::string_view ending, std::string_view content) {
        TestSupport::writeFile(name_ + std::string(ending), content);
    }
    std::wstring get(const std::string& locale, const std::string& key) {
        return VornMessageSet(name_, VornLocale(locale)).getString(key);
    }

    TestSupport::TemporaryDirectory directory_;
    const std::string name_ = directory_.file("ruvod");
};

TEST_F(VornMessageSetTest, ReadsTexts) {
    write(".msg",
          "\xEF\xBB\xBF# comment\nruvod.service-description = Gr\xC3\xB6\xC3\x9F"
          "e: 5 = 5\r\n");
    EXPECT_EQ(get("", "ruvod.service-description"), L"Gr\u00F6\u00DFe: 5 = 5");
}

TEST_F(VornMessageSetTest, PrefersTheTextOfTheLanguageAndOfTheRegion) {
    write(".msg", "a=a\nb=b\nc=c\n");
    write("_de.msg", "b=b de\nc=c de\n");
    write("_de_AT.msg", "c=c de AT\n");
    const VornMessageSet austria(name_, VornLocale("de_AT"));
    EXPECT_EQ(austria.getString("a"), L"a");
    EXPECT_EQ(austria.getString("b"), L"b de");
    EXPECT_EQ(austria.getString("c"), L"c de AT");
    EXPECT_EQ(get("de_DE", "c"), L"c de");
    EXPECT_EQ(get("de", "c"), L"c de");
    EXPECT_EQ(get("en_US", "c"), L"c");
    EXPECT_EQ(get("", "c"), L"c");
}

TEST_F(VornMessageSetTest, NeedsOneFileOnly) {
    write("_de_AT.msg", "a=1\n");
    EXPECT_EQ(get("de_AT", "a"), L"1");
    EXPECT_THROW(get("de_DE", "a"), VornException);
    write("_de.msg", "a=2\n");
    EXPECT_EQ(get("de_DE", "a"), L"2");
}

TEST_F(VornMessageSetTest, ThrowsWhenThereIsNoSet) {
    try {
        get("de", "a");
        FAIL();
    } catch (const VornException& e) {
        EXPECT_NE(e.getMessage().find(name_), std::string::npos);
        EXPECT_EQ(e.getCode(), 0);
    }
}

TEST_F(VornMessageSetTest, NamesTheTextThatIsMissing) {
    write(".msg", "a=1\n=2\nno text\n");
    const VornMessageSet set(name_, VornLocale());
    EXPECT_TRUE(set.contains("a"));
    EXPECT_FALSE(set.contains("b"));
    EXPECT_FALSE(set.contains(""));
    try {
        set.getString("b");
        FAIL();
    } catch (const VornPropertyNotFound& e) {
        EXPECT_EQ(e.getPropertyName(), "b");
    }
}

}  // namespace
