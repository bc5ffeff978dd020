#include "runtime/support/VornProperties.h"

#include "runtime/support/VornException.h"
#include "runtime/support/VornPropertiesText.h"
#include "runtime/support/VornSmartPointer.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

using namespace VornSupport;

namespace {

using Properties = VornProperties<std::string>;

class VornPropertiesTest : public testing::Test {
protected:
    Properties load(std::string_view content, const std::string& separator = "=") {
        const std::string name = directory_.file("test.properties");
        TestSupport::writeFile(name, content);
        Properties properties;
        properties.loadProperties(name, separator);
        return properties;
    }

    TestSupport::TemporaryDirectory directory_;
};

class Listener : public VornDependent {
public:
    void handleNotification(VornCollaborator&, const VornNotification& notification) override {
        kinds.push_back(notification.getKind());
    }
    std::vector<int> kinds;
};

TEST_F(VornPropertiesTest, ReadsKeysAndValues) {
    const auto properties = load("a=1\nruvod.gateway=on\n");
    EXPECT_EQ(properties.size(), 2u);
    EXPECT_EQ(properties.getProperty("a"), "1");
    EXPECT_EQ(properties.getProperty("ruvod.gateway"), "on");
}

TEST_F(VornPropertiesTest, TakesBlanksAroundKeysAndValuesAway) {
    const auto properties = load(" \tkey one \t = \t a value\twith blanks \t\f\v\r\n");
    EXPECT_EQ(properties.keys(), std::vector<std::string>{"key one"});
    EXPECT_EQ(properties.getProperty("key one"), "a value\twith blanks");
}

TEST_F(VornPropertiesTest, PassesOverCommentsAndBlankLines) {
    const auto properties = load("# a=1\n! b=2\n  \t# c=3\n\n   \n\t!d=4\ne=5 # kept\nf=#6\n");
    EXPECT_EQ(properties.keys(), (std::vector<std::string>{"e", "f"}));
    EXPECT_EQ(properties.getProperty("e"), "5 # kept");
    EXPECT_EQ(properties.getProperty("f"), "#6");
}

TEST_F(VornPropertiesTest, SplitsAtTheFirstSeparatorOnly) {
    const auto properties = load("url=http://h/?a=b&c==d\nlast==\n");
    EXPECT_EQ(properties.getProperty("url"), "http://h/?a=b&c==d");
    EXPECT_EQ(properties.getProperty("last"), "=");
}

TEST_F(VornPropertiesTest, ReadsEmptyValues) {
    const auto properties = load("a=\nb =  \r\nc=");
    for (const char* key : {"a", "b", "c"}) {
        std::string value = "unchanged";
        EXPECT_TRUE(properties.getPropertyValue(key, value)) << key;
        EXPECT_EQ(value, "") << key;
    }
}

TEST_F(VornPropertiesTest, ReadsBothLineEndsAndNoneAtTheEnd) {
    const auto properties = load("a=1\r\nb=2\nc=3");
    EXPECT_EQ(properties.getProperty("a"), "1");
    EXPECT_EQ(properties.getProperty("b"), "2");
    EXPECT_EQ(properties.getProperty("c"), "3");
}

TEST_F(VornPropertiesTest, ReadsLinesOfAMebibyte) {
    const std::string longValue(1024 * 1024, 'v');
    const std::string longKey(1024 * 1024, 'k');
    const auto properties = load("a=" + longValue + "\n" + longKey + "=x\nz=1");
    EXPECT_EQ(properties.getProperty("a"), longValue);
    EXPECT_EQ(properties.getProperty(longKey), "x");
    EXPECT_EQ(properties.getProperty("z"), "1");
}

TEST_F(VornPropertiesTest, SkipsAByteOrderMark) {
    const auto properties = load("\xEF\xBB\xBFname=J\xC3\xBCrgen\n");
    EXPECT_EQ(properties.getProperty("name"), "J\xC3\xBCrgen");
    EXPECT_EQ(load("\xEF\xBB\xBF").size(), 0u);
    EXPECT_EQ(load("\xEF\xBB\xBF# comment").size(), 0u);
}

TEST_F(VornPropertiesTest, LaterOfTwoLinesWins) {
    EXPECT_EQ(load("a=1\na=2\n a = 3\n").getProperty("a"), "3");
}

TEST_F(VornPropertiesTest, PassesOverLinesWithoutKey) {
    const auto properties = load("no separator\n=value\n  = value\na=1\n");
    EXPECT_EQ(properties.keys(), std::vector<std::string>{"a"});
}

TEST_F(VornPropertiesTest, SplitsAtAnotherSeparator) {
    const auto properties = load("a=1: x\nb :=2\n", ":");
    EXPECT_EQ(properties.getProperty("a=1"), "x");
    EXPECT_EQ(properties.getProperty("b"), "=2");
    EXPECT_EQ(load("a->b->c", "->").getProperty("a"), "b->c");
    EXPECT_EQ(load("a=1", "").size(), 0u);
}

TEST_F(VornPropertiesTest, KeepsZeroAndOtherBytes) {
    const auto properties = load(std::string_view("a=\0\x01\xFF!\n", 8));
    EXPECT_EQ(properties.getProperty("a"), std::string("\0\x01\xFF!", 4));
}

TEST_F(VornPropertiesTest, EmptyFileIsAnEmptyTable) { EXPECT_EQ(load("").size(), 0u); }

TEST_F(VornPropertiesTest, TellsWhichFileCannotBeOpened) {
    for (const std::string& name : {directory_.file("missing"), directory_.text(), std::string()}) {
        Properties properties;
        properties.setProperty("kept", "1");
        try {
            properties.loadProperties(name, "=");
            FAIL() << name;
        } catch (const VornException& e) {
            EXPECT_EQ(e.getMessage(),
                      "VornProperties<StringType>::loadProperties: couldn't open file " + name);
            EXPECT_EQ(e.getCode(), 0);
        }
        EXPECT_EQ(properties.keys(), std::vector<std::string>{"kept"});
    }
}

TEST_F(VornPropertiesTest, OpensFilesWithAnyName) {
    const std::string name = directory_.file(
        "gr\xC3\xB6\xC3\x9F"
        "e \xE2\x82\xAC.properties");
    TestSupport::writeFile(name, "a=1");
    Properties properties;
    properties.loadProperties(name);
    EXPECT_EQ(properties.getProperty("a"), "1");
}

TEST_F(VornPropertiesTest, RefusesAFileThatIsTooLarge) {
    const std::string name = directory_.file("large");
    TestSupport::writeFile(name, std::string(kLargestPropertiesFile + 1, '#'));
    std::string text = "unchanged";
    EXPECT_FALSE(readPropertiesText(name, text));
    EXPECT_EQ(text, "unchanged");
    std::filesystem::resize_file(TestSupport::toPath(name), kLargestPropertiesFile);
    EXPECT_TRUE(readPropertiesText(name, text));
    EXPECT_EQ(text.size(), kLargestPropertiesFile);
}

TEST_F(VornPropertiesTest, LoadAddsAndReplaces) {
    const std::string name = directory_.file("more");
    TestSupport::writeFile(name, "b=new\nc=3\n");
    Properties properties;
    properties.setProperty("a", "1");
    properties.setProperty("b", "old");
    properties.loadProperties(name);
    EXPECT_EQ(properties.keys(), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(properties.getProperty("a"), "1");
    EXPECT_EQ(properties.getProperty("b"), "new");
}

TEST(VornPropertiesText, NumbersLinesAndShowsThoseWithoutKey) {
    struct Seen {
        std::size_t number;
        std::string key;
        std::string value;
        bool operator==(const Seen&) const = default;
    };
    std::vector<Seen> seen;
    visitPropertyLines("# one\n\n a = 3 \n oops \r\n=x\n#six\nb=7", "=", [&](const auto& line) {
        seen.push_back({line.number, std::string(line.key), std::string(line.value)});
    });
    EXPECT_EQ(seen,
              (std::vector<Seen>{{3, "a", "3"}, {4, "", "oops"}, {5, "", "=x"}, {7, "b", "7"}}));
}

TEST(VornProperties, MissingKeyLeavesTheValueAlone) {
    const Properties properties;
    std::string value = "default";
    EXPECT_FALSE(properties.getPropertyValue("a", value));
    EXPECT_EQ(value, "default");
    EXPECT_FALSE(properties.contains("a"));
    EXPECT_EQ(properties.getPropertyOr("a", "other"), "other");
}

TEST(VornProperties, RequiredKeyIsNamedWhenItIsMissing) {
    const Properties properties;
    try {
        properties.getProperty("ruvod.gateway");
        FAIL();
    } catch (const VornPropertyNotFound& e) {
        EXPECT_EQ(e.getPropertyName(), "ruvod.gateway");
    }
    EXPECT_THROW(properties.getProperty(""), VornException);
}

TEST(VornProperties, SetInsertsAndReplacesExactKeys) {
    Properties properties;
    properties.setProperty("Key", "1");
    properties.setProperty("key", "2");
    properties.setProperty("Key", "3");
    EXPECT_EQ(properties.getProperty("Key"), "3");
    EXPECT_EQ(properties.getProperty("key"), "2");
    EXPECT_EQ(properties.getPropertyOr("key", "other"), "2");
    EXPECT_TRUE(properties.removeProperty("key"));
    EXPECT_FALSE(properties.removeProperty("key"));
    EXPECT_FALSE(properties.contains("key"));
    EXPECT_TRUE(properties.contains("Key"));
}

TEST(VornProperties, CopyIsATableOfItsOwn) {
    Properties first(true);
    Listener listener;
    first.addDependent(listener);
    first.setProperty("a", "1");
    Properties copy(first);
    copy.setProperty("a", "2");
    EXPECT_EQ(first.getProperty("a"), "1");
    EXPECT_EQ(copy.getProperty("a"), "2");
    EXPECT_EQ(copy.refCount(), 0u);
    EXPECT_EQ(listener.kinds.size(), 1u);
    first.removeDependent(listener);
}

TEST(VornProperties, AssignReplacesTheWholeTable) {
    Properties table;
    table.setProperty("old", "1");
    table.setProperty("both", "1");
    Properties next;
    next.setProperty("both", "2");
    next.setProperty("new", "2");
    table.assign(next);
    EXPECT_EQ(table.keys(), (std::vector<std::string>{"both", "new"}));
    EXPECT_EQ(table.getProperty("both"), "2");
    table.assign(table);
    EXPECT_EQ(table.size(), 2u);
    Properties other;
    other = table;
    EXPECT_EQ(other.keys(), table.keys());
}

TEST(VornProperties, SwapExchangesTheTables) {
    Properties a;
    Properties b;
    a.setProperty("a", "1");
    b.setProperty("b", "2");
    a.swap(b);
    EXPECT_EQ(a.keys(), std::vector<std::string>{"b"});
    EXPECT_EQ(b.keys(), std::vector<std::string>{"a"});
    a.swap(a);
    EXPECT_EQ(a.keys(), std::vector<std::string>{"b"});
}

TEST(VornProperties, VisitsInOrderAndMayBeChangedMeanwhile) {
    Properties properties;
    for (const char* key : {"c", "a", "b"}) properties.setProperty(key, std::string(key) + key);
    std::string seen;
    properties.forEach([&](const std::string& key, const std::string& value) {
        seen += key + value + ' ';
        properties.setProperty("d", "");
    });
    EXPECT_EQ(seen, "aaa bbb ccc ");
    EXPECT_EQ(properties.size(), 4u);
}

TEST(VornProperties, TellsDependentsOfEveryChangeWhenAsked) {
    Properties properties(true);
    Listener listener;
    properties.addDependent(listener);
    properties.setProperty("a", "1");
    properties.removeProperty("missing");
    properties.removeProperty("a");
    properties.assign(Properties());
    EXPECT_EQ(listener.kinds, std::vector<int>(3, Properties::kChanged));
    properties.removeDependent(listener);

    Properties quiet(false);
    quiet.addDependent(listener);
    quiet.setProperty("a", "1");
    EXPECT_EQ(listener.kinds.size(), 3u);
    quiet.removeDependent(listener);
}

TEST(VornProperties, IsACountedObject) {
    const VornSmartPointer<Properties> properties = makeCounted<Properties>(true);
    EXPECT_EQ(properties->getClassName(), "VornProperties");
    EXPECT_TRUE(properties->isA("VornCollaborator"));
}

TEST(VornProperties, ReadersSeeWholeTablesWhileTheyAreReplaced) {
    Properties odd;
    Properties even;
    for (int i = 0; i < 50; ++i) {
        odd.setProperty("key" + std::to_string(i), "odd");
        even.setProperty("key" + std::to_string(i), "even");
    }
    Properties table(even);
    Properties spare(odd);
    std::atomic<bool> stop{false};
    std::atomic<int> mixed{0};
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 3; ++reader) {
        readers.emplace_back([&] {
            while (!stop) {
                const Properties seen(table);
                const std::string first = seen.getProperty("key0");
                seen.forEach([&](const std::string&, const std::string& value) {
                    if (value != first) ++mixed;
                });
            }
        });
    }
    std::thread swapper([&] {
        for (int i = 0; i < 200; ++i) spare.swap(table);
    });
    for (int i = 0; i < 200; ++i) {
        table.assign(i % 2 ? odd : even);
        table.swap(spare);
    }
    swapper.join();
    stop = true;
    for (auto& reader : readers) reader.join();
    EXPECT_EQ(mixed, 0);
}

}  // namespace
