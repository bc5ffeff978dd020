#include "runtime/support/VornExpandString.h"

#include <gtest/gtest.h>

#include <chrono>
#include <initializer_list>
#include <string>
#include <utility>

using namespace VornSupport;

namespace {

using Properties = VornProperties<std::string>;

Properties table(std::initializer_list<std::pair<const char*, const char*>> entries) {
    Properties properties;
    for (const auto& [key, value] : entries) properties.setProperty(key, value);
    return properties;
}

std::string reference(const std::string& key) { return "${" + key + "}"; }

TEST(VornExpandString, PutsValuesInPlaceOfReferences) {
    const auto properties = table({{"dir", "/opt"}, {"tool.name", "app"}, {"none", ""}});
    EXPECT_EQ(VornExpandString("${dir}/bin/${tool.name} -x", properties), "/opt/bin/app -x");
    EXPECT_EQ(VornExpandString("${dir}${dir}", properties), "/opt/opt");
    EXPECT_EQ(VornExpandString("[${none}]", properties), "[]");
}

TEST(VornExpandString, LeavesOtherTextAlone) {
    const auto properties = table({{"a", "1"}});
    for (const char* text : {"", "plain", "$", "$a", "{a}", "a}", "$ {a}", "${", "${a", "$}{",
                             "x${}y", "100% ${a \n"}) {
        EXPECT_EQ(VornExpandString(text, properties), text);
    }
}

TEST(VornExpandString, LeavesUnknownReferencesAsTheyStand) {
    const auto properties = table({{"a", "1"}, {"b", "<${missing}>"}});
    EXPECT_EQ(VornExpandString("${missing}${a}${A}", properties), "${missing}1${A}");
    EXPECT_EQ(VornExpandString("${ a }", properties), "${ a }");
    EXPECT_EQ(VornExpandString("${b}", properties), "<${missing}>");
}

TEST(VornExpandString, ExpandsValuesToo) {
    const auto properties = table({{"a", "(${b}${b})"}, {"b", "[${c}]"}, {"c", "x"}});
    EXPECT_EQ(VornExpandString("${a}!", properties), "([x][x])!");
}

TEST(VornExpandString, TakesTheInnermostReference) {
    const auto properties = table({{"a", "1"}, {"x1", "never"}});
    EXPECT_EQ(VornExpandString("${x${a}}", properties), "${x1}");
    EXPECT_EQ(VornExpandString("${${a}", properties), "${1");
    EXPECT_EQ(VornExpandString("$${a}}", properties), "$1}");
}

TEST(VornExpandString, LeavesCircularReferencesAsTheyStand) {
    const auto properties = table(
        {{"self", "<${self}>"}, {"a", "a${b}"}, {"b", "b${c}"}, {"c", "c${a}"}, {"d", "${a}"}});
    EXPECT_EQ(VornExpandString("${self}", properties), "<${self}>");
    EXPECT_EQ(VornExpandString("${a}", properties), "abc${a}");
    EXPECT_EQ(VornExpandString("${b}${b}", properties), "bca${b}bca${b}");
    EXPECT_EQ(VornExpandString("${d}", properties), "abc${a}");
}

TEST(VornExpandString, EndsVeryDeepReferences) {
    Properties properties;
    constexpr int kLast = 5000;
    for (int i = 0; i < kLast; ++i) {
        properties.setProperty("k" + std::to_string(i), ".${k" + std::to_string(i + 1) + "}");
    }
    properties.setProperty("k" + std::to_string(kLast), "end");
    EXPECT_EQ(VornExpandString("${k0}", properties), std::string(100, '.') + "${k100}");
    EXPECT_EQ(VornExpandString("${k4901}", properties), std::string(99, '.') + "end");
}

TEST(VornExpandString, EndsExponentialGrowth) {
    Properties properties;
    for (int i = 0; i < 90; ++i) {
        const std::string next = reference("k" + std::to_string(i + 1));
        properties.setProperty("k" + std::to_string(i), next + next);
    }
    properties.setProperty("k90", std::string(1000, 'x'));
    const std::string result = VornExpandString("${k0}", properties);
    EXPECT_LT(result.size(), 8u * 1024 * 1024);
    EXPECT_NE(result.find("${k"), std::string::npos);
}

TEST(VornExpandString, EndsExponentialGrowthOfNothing) {
    Properties properties;
    for (int i = 0; i < 90; ++i) {
        const std::string next = reference("k" + std::to_string(i + 1));
        properties.setProperty("k" + std::to_string(i), next + next);
    }
    properties.setProperty("k90", "");
    const std::string result = VornExpandString("${k0}", properties);
    EXPECT_LT(result.size(), 1024u * 1024);
    EXPECT_NE(result, "");
}

// Values that are looked at in vain cost as well: here a quarter of a million
// references each find a value of a mebibyte.
TEST(VornExpandString, EndsSoonWithManyReferencesToLargeValues) {
    std::string many;
    while (many.size() < 1024 * 1024) many += "${a}";
    Properties properties;
    properties.setProperty("a", many);
    const auto begin = std::chrono::steady_clock::now();
    const std::string result = VornExpandString(many, properties);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    EXPECT_GT(result.size(), many.size());
    EXPECT_LT(result.size(), 8u * 1024 * 1024);
}

TEST(VornExpandString, HandlesAnyBytes) {
    Properties properties;
    properties.setProperty(std::string("z\0\xFF", 3), std::string("\0!", 2));
    EXPECT_EQ(VornExpandString(std::string("${z\0\xFF}", 6), properties), std::string("\0!", 2));
}

}  // namespace
