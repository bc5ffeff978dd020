#include "runtime/support/VornRegularExpression.h"

#include "runtime/support/VornRequiredText.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <random>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace VornSupport;

namespace {

using Expression = VornRegularExpression<std::string>;
using Match = std::pair<std::size_t, std::size_t>;

constexpr std::size_t kNone = Expression::npos;

Expression of(const std::string& pattern) {
    Expression expression;
    EXPECT_TRUE(expression.setPattern(pattern)) << pattern << ": " << expression.getErrorText();
    EXPECT_EQ(expression.getErrorText(), "");
    EXPECT_EQ(expression.getPattern(), pattern);
    return expression;
}

// Position and length of the match, and whether the other questions agree.
Match find(const std::string& pattern, const std::string& text, std::size_t start = 0) {
    const Expression expression = of(pattern);
    std::size_t length = 99;
    const std::size_t position = expression.find(text, start, &length);
    EXPECT_EQ(expression.find(text, start), position);
    if (start == 0) {
        EXPECT_EQ(expression.isFoundIn(text), position != kNone) << pattern << " in " << text;
        EXPECT_EQ(expression.isNonEmptyFoundIn(text), length > 0) << pattern << " in " << text;
    }
    return {position, length};
}

const Match kNoMatch{kNone, 0};

TEST(VornRegularExpression, FindsPlainTextAnywhere) {
    EXPECT_EQ(find("disk", "raid.disk.ok"), (Match{5, 4}));
    EXPECT_EQ(find("disk", "disk.failed"), (Match{0, 4}));
    EXPECT_EQ(find("disk", "dis"), kNoMatch);
    EXPECT_EQ(find("disk", ""), kNoMatch);
    EXPECT_EQ(find("aab", "aaab"), (Match{1, 3}));
}

TEST(VornRegularExpression, ComparesLettersExactly) {
    EXPECT_EQ(find("disk", "DISK"), kNoMatch);
    EXPECT_EQ(find("[d]isk", "DISK"), kNoMatch);
}

TEST(VornRegularExpression, KnowsAnchorsOfPlainText) {
    EXPECT_EQ(find("^disk$", "disk"), (Match{0, 4}));
    EXPECT_EQ(find("^disk$", "disk.failed"), kNoMatch);
    EXPECT_EQ(find("^disk$", "a disk"), kNoMatch);
    EXPECT_EQ(find("^disk", "disk.failed"), (Match{0, 4}));
    EXPECT_EQ(find("^disk", "raid.disk"), kNoMatch);
    EXPECT_EQ(find("disk$", "raid.disk"), (Match{5, 4}));
    EXPECT_EQ(find("disk$", "disk.failed"), kNoMatch);
    EXPECT_EQ(find("disk$", "isk"), kNoMatch);
    EXPECT_EQ(find("disk$", "disk\n"), kNoMatch);
    EXPECT_EQ(find("^disk", "a\ndisk"), kNoMatch);
}

TEST(VornRegularExpression, ReadsEscapedPunctuation) {
    EXPECT_EQ(find("raid\\.disk", "raid.disk"), (Match{0, 9}));
    EXPECT_EQ(find("raid\\.disk", "raidxdisk"), kNoMatch);
    EXPECT_EQ(find("^a\\$$", "a$"), (Match{0, 2}));
    EXPECT_EQ(find("a\\$", "xa$y"), (Match{1, 2}));
    EXPECT_EQ(find("a\\\\$", "xa\\"), (Match{1, 2}));
    EXPECT_EQ(find("\\^a", "x^a"), (Match{1, 2}));
    EXPECT_EQ(find("\\[\\]\\(\\)\\{\\}\\*\\+\\?\\|\\-\\:", "[](){}*+?|-:"), (Match{0, 12}));
    EXPECT_EQ(find("a\\.*", "a..."), (Match{0, 4}));
    EXPECT_EQ(find("a\\\\.*", "a\\xyz"), (Match{0, 5}));
}

TEST(VornRegularExpression, MatchesOfNoLengthAreFoundWithLengthZero) {
    EXPECT_EQ(find("", "abc"), (Match{0, 0}));
    EXPECT_EQ(find("", ""), (Match{0, 0}));
    EXPECT_EQ(find("z*", "abc"), (Match{0, 0}));
    EXPECT_EQ(find("z*", "zebra"), (Match{0, 1}));
    EXPECT_EQ(find("z*", "a zebra"), (Match{0, 0}));
    EXPECT_EQ(find("^", "abc"), (Match{0, 0}));
    EXPECT_EQ(find("$", "abc"), (Match{3, 0}));
    EXPECT_EQ(find("^$", ""), (Match{0, 0}));
    EXPECT_EQ(find("^$", "a"), kNoMatch);
    EXPECT_EQ(find("\\b", "abc"), (Match{0, 0}));
}

TEST(VornRegularExpression, DotStarGoesToTheEndOfTheLine) {
    EXPECT_EQ(find(".*", "any event"), (Match{0, 9}));
    EXPECT_EQ(find(".*", ""), (Match{0, 0}));
    EXPECT_EQ(find(".*", "\nabc"), (Match{0, 0}));
    EXPECT_EQ(find("^.*", "ab\nc"), (Match{0, 2}));
    EXPECT_EQ(find("b.*", "abc\nd"), (Match{1, 2}));
    EXPECT_EQ(find("^Job\\:.*", "Job:1"), (Match{0, 5}));
    EXPECT_EQ(find("^Job\\:.*", "a Job:1"), kNoMatch);
    EXPECT_EQ(find("b.*$", "abc"), (Match{1, 2}));
}

TEST(VornRegularExpression, FindsWhatMoreThanTextDescribes) {
    EXPECT_EQ(find("d.sk", "raid.disk"), (Match{5, 4}));
    EXPECT_EQ(find("^Vorn(JS|RA)Event:\\d+$", "VornRAEvent:42"), (Match{0, 14}));
    EXPECT_EQ(find("^Vorn(JS|RA)Event:\\d+$", "VornTSEvent:42"), kNoMatch);
    EXPECT_EQ(find("(?i)DISK", "raid.disk"), (Match{5, 4}));
    EXPECT_EQ(find("[a-c]+", "xxabcabc"), (Match{2, 6}));
    EXPECT_EQ(find("a|b", "xxb"), (Match{2, 1}));
    EXPECT_EQ(find("fail|failed", "failed"), (Match{0, 4}));
    EXPECT_EQ(find("failed|fail", "failed"), (Match{0, 6}));
    EXPECT_EQ(find("a+?", "aaa"), (Match{0, 1}));
}

TEST(VornRegularExpression, SearchesFromAPosition) {
    for (const char* pattern : {"a", "[a]"}) {
        EXPECT_EQ(find(pattern, "abca", 0), (Match{0, 1}));
        EXPECT_EQ(find(pattern, "abca", 1), (Match{3, 1}));
        EXPECT_EQ(find(pattern, "abca", 4), kNoMatch);
        EXPECT_EQ(find(pattern, "abca", 5), kNoMatch);
        EXPECT_EQ(find(pattern, "abca", kNone), kNoMatch);
    }
    for (const char* pattern : {"a$", "[a]$"}) {
        EXPECT_EQ(find(pattern, "abca", 3), (Match{3, 1}));
        EXPECT_EQ(find(pattern, "abca", 4), kNoMatch);
    }
    for (const char* pattern : {"^b", "^[b]"}) EXPECT_EQ(find(pattern, "abc", 1), kNoMatch);
    EXPECT_EQ(find("", "abc", 3), (Match{3, 0}));
    EXPECT_EQ(find("", "abc", 4), kNoMatch);
    EXPECT_EQ(find(".*", "abc", 1), (Match{1, 2}));
}

TEST(VornRegularExpression, SaysWhyAPatternIsRefused) {
    for (const char* pattern : {"[abc", "(", "a)", "*", "a**", "x{2,1}", "\\", "abc\\",
                                "(?<name>a)", "a(?=b)", "(a)\\1", "[z-a]"}) {
        Expression expression = of("good");
        EXPECT_FALSE(expression.setPattern(pattern)) << pattern;
        EXPECT_NE(expression.getErrorText(), "") << pattern;
        EXPECT_FALSE(expression.isFoundIn("good"));
        EXPECT_FALSE(expression.isNonEmptyFoundIn("good"));
        EXPECT_EQ(expression.find("good", 0), kNone);
        EXPECT_TRUE(expression.setPattern("go+d")) << "usable again";
        EXPECT_EQ(expression.getErrorText(), "");
        EXPECT_TRUE(expression.isFoundIn("good"));
    }
    Expression expression;
    EXPECT_FALSE(expression.setPattern("[abc"));
    EXPECT_NE(expression.getErrorText().find("[abc"), std::string::npos);
}

TEST(VornRegularExpression, RefusesPatternsThatNeedTooMuchMemory) {
    Expression expression;
    EXPECT_FALSE(expression.setPattern("((a{100}){100}){100}"));
    EXPECT_NE(expression.getErrorText(), "");
    EXPECT_FALSE(expression.setPattern("(((\\pL{1,100}){1,10}){1,10}){1,10}"));
    EXPECT_NE(expression.getErrorText(), "");
}

TEST(VornRegularExpression, RefusesLongPatternsUnlessTheyArePlain) {
    Expression expression;
    EXPECT_TRUE(expression.setPattern(std::string(1024 * 1024, 'a')));
    EXPECT_TRUE(expression.isFoundIn(std::string(1024 * 1024, 'a')));
    EXPECT_FALSE(expression.isFoundIn("a"));
    for (const std::string piece : {"(", "[", "a|", "a*", "(a", "()", "[a]", "a{9}"}) {
        std::string pattern;
        while (pattern.size() <= 64 * 1024) pattern += piece;
        EXPECT_FALSE(expression.setPattern(pattern)) << piece;
        EXPECT_EQ(expression.getErrorText(), "pattern too long: more than 65536 bytes");
        // As long as may be: taken or refused, but soon and without harm.
        pattern.resize(64 * 1024 / piece.size() * piece.size());
        testing::internal::CaptureStderr();
        expression.setPattern(pattern);
        expression.isNonEmptyFoundIn("aaaa");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << piece;
    }
    EXPECT_TRUE(expression.setPattern("a.b"));
    EXPECT_TRUE(expression.isFoundIn("xaab"));
}

TEST(VornRegularExpression, TakesLinearTime) {
    const auto begin = std::chrono::steady_clock::now();
    const std::string text(100'000, 'a');
    EXPECT_EQ(find("(a*)*[b]", text), kNoMatch);
    EXPECT_EQ(find("(a|aa)+[xy]$", text), kNoMatch);
    EXPECT_EQ(find("(.*)(.*)(.*)(.*)(.*)[^a]", text), kNoMatch);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST(VornRegularExpression, TakesAnyBytesInTexts) {
    const std::string text(
        "\x80\0\xFF"
        "disk\xC3",
        8);
    for (const char* pattern : {"disk", "d.sk", "[d]isk"}) {
        EXPECT_EQ(find(pattern, text), (Match{3, 4})) << pattern;
    }
    EXPECT_EQ(find("^.*$", text), (Match{0, 8}));
    EXPECT_EQ(find("^...disk.$", text), (Match{0, 8}));
}

TEST(VornRegularExpression, MatchesByCharactersWhenThePatternHoldsSome) {
    EXPECT_EQ(find("gr\xC3\xB6\xC3\x9F"
                   "e",
                   "die gr\xC3\xB6\xC3\x9F"
                   "e"),
              (Match{4, 7}));
    EXPECT_EQ(find("[\xC3\xA4\xC3\xB6]x", "\xC3\xB6x"), (Match{0, 3}));
    EXPECT_EQ(find("[\xC3\xA4\xC3\xB6]x", "\xB6x"), kNoMatch);
    EXPECT_EQ(find("^.\xC3\xA4.$", "\xC3\xB6\xC3\xA4\xC3\xBC"), (Match{0, 6}));
    EXPECT_EQ(find("\xC3\xA4.*",
                   "\xC3\xA4"
                   "a\xC3\xB6\xFF"),
              (Match{0, 5}));
    EXPECT_EQ(find("^..$", "\xC3\xA4"), (Match{0, 2})) << "a pattern of ASCII counts bytes";
}

TEST(VornRegularExpression, MatchesByBytesWhenThePatternIsNotUtf8) {
    EXPECT_EQ(find("\xFF", "a\xFF"), (Match{1, 1}));
    EXPECT_EQ(find("[\xFE\xFF]+", "a\xFF\xFE"), (Match{1, 2}));
    EXPECT_EQ(find("\xFF.", "\xFF\x80"), (Match{0, 2}));
    EXPECT_EQ(find(std::string("a\0b", 3), std::string("xa\0b", 4)), (Match{1, 3}));
}

TEST(VornRegularExpression, MayBeMoved) {
    Expression first = of("d.sk");
    Expression second(std::move(first));
    EXPECT_TRUE(second.isFoundIn("disk"));
    Expression third;
    third = std::move(second);
    EXPECT_TRUE(third.isFoundIn("disk"));
    EXPECT_EQ(third.getPattern(), "d.sk");
}

TEST(VornRegularExpression, StartsWithTheEmptyPattern) {
    const Expression expression;
    EXPECT_EQ(expression.find("abc", 1), 1u);
    EXPECT_TRUE(expression.isFoundIn(""));
    EXPECT_FALSE(expression.isNonEmptyFoundIn("abc"));
}

TEST(VornRegularExpression, SharedPatternOutlivesItsFirstUser) {
    auto first = std::make_optional(of("sh[a]red"));
    const Expression second = of("sh[a]red");
    first.reset();
    EXPECT_TRUE(second.isFoundIn("shared"));
    for (int i = 0; i < 500; ++i) {
        EXPECT_TRUE(of("[p]attern" + std::to_string(i)).isFoundIn("pattern" + std::to_string(i)));
    }
}

TEST(VornRegularExpression, MayBeUsedByManyThreads) {
    const Expression expression = of("^Vorn(JS|RA)Event:.*7$");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                const std::string text = "VornRAEvent:" + std::to_string(i);
                EXPECT_EQ(expression.isNonEmptyFoundIn(text), i % 10 == 7);
                EXPECT_TRUE(of("x[0-9]+y" + std::to_string(i % 5))
                                .isFoundIn("x12y" + std::to_string(i % 5)));
            }
        });
    }
    for (auto& thread : threads) thread.join();
}

// Patterns put together at random: one that is plain to us, wrapped so that it
// is not plain, must behave the same.
TEST(VornRegularExpression, PlainAndGeneralSearchAgree) {
    std::mt19937 random(12345);
    const auto pick = [&random](int below) {
        return static_cast<std::size_t>(random() % static_cast<unsigned>(below));
    };
    static const char* const kHeads[] = {"", "^"};
    static const char* const kPieces[] = {"a", "b", "\\.", "\\$", "ab", "\xC3\xA4"};
    static const char* const kTails[] = {"", "$", ".*"};
    static const char* const kTexts[] = {"a", "b", ".", "$", "\n", "\xC3\xA4", "\xFF"};
    for (int round = 0; round < 5000; ++round) {
        const std::string head = kHeads[pick(2)];
        std::string middle;
        for (std::size_t i = pick(3); i > 0; --i) middle += kPieces[pick(6)];
        const std::string tail = kTails[pick(3)];
        std::string text;
        for (std::size_t i = pick(7); i > 0; --i) text += kTexts[pick(7)];
        const std::size_t start = pick(static_cast<int>(text.size()) + 2);
        EXPECT_EQ(find(head + middle + tail, text, start),
                  find(head + "(" + middle + ")" + tail, text, start))
            << head << middle << tail << " in " << text << " from " << start;
    }
}

TEST(VornRequiredText, FindsTheLongestRun) {
    EXPECT_EQ(requiredText("d.sk"), "sk");
    EXPECT_EQ(requiredText("^Vorn(JS|RA)Event:.*\\d+$"), "Event:");
    EXPECT_EQ(requiredText("[a-z]+\\.failed"), ".failed");
    EXPECT_EQ(requiredText("plain"), "plain");
    EXPECT_EQ(requiredText("ab{2,3}cde"), "cde");
    EXPECT_EQ(requiredText("(?:x|y)ab[]a]z"), "ab");
}

TEST(VornRequiredText, LeavesOutWhatNeedNotBeThere) {
    EXPECT_EQ(requiredText("ab*"), "a");
    EXPECT_EQ(requiredText("ab?"), "a");
    EXPECT_EQ(requiredText("ab{0,2}"), "a");
    EXPECT_EQ(requiredText("ab??"), "a");
    EXPECT_EQ(requiredText("ab+c"), "ab");
    EXPECT_EQ(requiredText("a\xC3\xA4*"), "a");
    EXPECT_EQ(requiredText("(abc)?d"), "d");
    EXPECT_EQ(requiredText("abc|d"), "");
    EXPECT_EQ(requiredText("a[bcd]"), "a");
    EXPECT_EQ(requiredText("x*"), "");
}

TEST(VornRequiredText, KeepsOffWhatItDoesNotUnderstand) {
    for (const char* pattern : {"(?i)abc", "\\Qab*\\E", "\\x{41}bc", "\\pLabc", "a(?i:b)c", "\\101",
                                "[[:alpha:", "(abc", "\\"}) {
        EXPECT_EQ(requiredText(pattern), "") << pattern;
    }
}

// Only "{n}", "{n,}" and "{n,m}" repeat.
TEST(VornRequiredText, TakesOtherBracesForThemselves) {
    EXPECT_EQ(requiredText("a{"), "a{");
    EXPECT_EQ(requiredText("{a}bc"), "{a}bc");
    EXPECT_EQ(requiredText("a{b}*"), "a{b");
    EXPECT_EQ(requiredText("a{}"), "a{}");
    EXPECT_EQ(requiredText("ab{2,x}"), "ab{2,x}");
    EXPECT_EQ(requiredText("a{1"), "a{1");
    EXPECT_EQ(requiredText("x{a|b}foo"), "");
    EXPECT_EQ(requiredText("^job{[0-9]|x}done"), "");
    EXPECT_EQ(requiredText("a{(b}c)d"), "a{");
    EXPECT_EQ(requiredText("a{[}]bc"), "a{");
    EXPECT_EQ(requiredText("a{\\Qb|c\\E}"), "");
    // Not a repetition either, but looks like one.
    EXPECT_EQ(requiredText("abc{,2}d"), "ab");
    EXPECT_EQ(requiredText("abc{02}d"), "ab");
}

TEST(VornRegularExpression, FindsTextsWithBraces) {
    EXPECT_EQ(find("x{a|b}foo", "x{a"), (Match{0, 3}));
    EXPECT_EQ(find("x{a|b}foo", "a b}foo"), (Match{2, 5}));
    EXPECT_EQ(find("^job{[0-9]|x}done", "job{5"), (Match{0, 5}));
    EXPECT_EQ(find("a{(b}c)d", "a{b}cd"), (Match{0, 6}));
    EXPECT_EQ(find("a{[}]bc", "a{}bc"), (Match{0, 5}));
    EXPECT_EQ(find("a{|b}yes", "xa{"), (Match{1, 2}));
    EXPECT_EQ(find("a{,2}b", "xa{,2}b"), (Match{1, 6}));
    EXPECT_EQ(find("a{02}b", "a{02}b"), (Match{0, 6}));
    EXPECT_EQ(find("a{2}b", "caab"), (Match{1, 3}));
    EXPECT_EQ(find("{\\Qa|b\\E}", "{a|b}"), (Match{0, 5}));
}

// The same pattern with the run hidden from us, on texts of the same letters.
TEST(VornRequiredText, NeverHidesAMatch) {
    std::mt19937 random(54321);
    const auto pick = [&random](int below) {
        return static_cast<std::size_t>(random() % static_cast<unsigned>(below));
    };
    static const char* const kPieces[] = {
        "a",     "b",    "c",      "ab", "a*",  "b+", "c?", "[ab]", "[^a]", "(a)",    "(a|b)",
        "(bc)*", "a{2}", "b{0,1}", ".",  "\\.", "^",  "$",  "|",    "\\b",  "(?:ab)?",
        "{",     "}",    "{,2}",   "{a|b}", "{(", "[{]", ")"};
    int good = 0;
    for (int round = 0; round < 40'000; ++round) {
        std::string pattern;
        for (std::size_t i = 1 + pick(5); i > 0; --i) {
            pattern += kPieces[pick(static_cast<int>(std::size(kPieces)))];
        }
        std::string text;
        for (std::size_t i = pick(8); i > 0; --i) text += "abc.{}"[pick(6)];
        Expression direct;
        Expression hidden;
        if (!direct.setPattern(pattern) || !hidden.setPattern("(" + pattern + ")")) continue;
        ++good;
        ASSERT_EQ(requiredText("(" + pattern + ")"), "");
        std::size_t length = 0;
        std::size_t hiddenLength = 0;
        ASSERT_EQ(direct.find(text, 0, &length), hidden.find(text, 0, &hiddenLength))
            << pattern << " in " << text;
        ASSERT_EQ(length, hiddenLength) << pattern << " in " << text;
        ASSERT_EQ(direct.isFoundIn(text), hidden.isFoundIn(text)) << pattern << " in " << text;
        ASSERT_EQ(direct.isNonEmptyFoundIn(text), hiddenLength > 0) << pattern << " in " << text;
    }
    EXPECT_GT(good, 10'000);
}

}  // namespace
