#include "client/ruvoctl/Output.h"

#include <gtest/gtest.h>

using Ruvoctl::bytesOf;
using Ruvoctl::hexOf;
using Ruvoctl::isPrintable;
using Ruvoctl::jsonOf;
using Ruvoctl::lineOf;
using Ruvoctl::shown;

TEST(Output, WritesAndReadsHex) {
    const std::string all("\0\x01\x7f\x80\xff", 5);
    EXPECT_EQ(hexOf(all), "00017f80ff");
    EXPECT_EQ(bytesOf("00017F80ff"), all);
    EXPECT_EQ(bytesOf("00 01 7f  80 ff "), all);
    EXPECT_EQ(bytesOf(""), "");
    for (const char* bad : {"0", "000", "0 0", "0g", "g0", "-1", "0x00"}) {
        EXPECT_FALSE(bytesOf(bad)) << bad;
    }
}

TEST(Output, ShowsPrintableTextAsItIs) {
    for (const std::string text : {"a b~", "\xc2\xa0", "\xc3\xa9", "\xe2\x82\xac", "\xef\xbf\xbd",
                                   "\xf0\x9f\x98\x80", "\xf4\x8f\xbf\xbf"}) {
        EXPECT_EQ(shown(text), text);
        EXPECT_TRUE(isPrintable(text)) << text;
    }
    EXPECT_EQ(shown(""), "");
    EXPECT_FALSE(isPrintable(""));
}

TEST(Output, EscapesWhatCouldDriveATerminalOrIsNoUtf8) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"\x1b[1m", "\\x1b[1m"},
        {"\"\\", "\\x22\\x5c"},
        {"\x7f", "\\x7f"},
        {std::string(1, '\0'), "\\x00"},
        {"\xc2\x9b", "\\xc2\\x9b"},                  // a control of its own
        {"\xe2\x80\xae", "\\xe2\\x80\\xae"},          // right-to-left from here
        {"\xe2\x81\xa6", "\\xe2\\x81\\xa6"},
        {"\x80", "\\x80"},                            // a middle without a beginning
        {"\xc3", "\\xc3"},                            // a beginning without an end
        {"\xc3x", "\\xc3x"},
        {"\xe2\x82", "\\xe2\\x82"},
        {"\xc0\xaf", "\\xc0\\xaf"},                  // too long for what it says
        {"\xc1\xbf", "\\xc1\\xbf"},
        {"\xe0\x9f\xbf", "\\xe0\\x9f\\xbf"},
        {"\xf0\x8f\xbf\xbf", "\\xf0\\x8f\\xbf\\xbf"},
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},          // half a pair
        {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},  // beyond the last
        {"\xff\xfe", "\\xff\\xfe"},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(shown(text), expected);
        EXPECT_FALSE(isPrintable(text)) << expected;
    }
}

TEST(Output, WritesJsonOnOneLineWhateverTheText) {
    EXPECT_EQ(Ruvoctl::textOf({{"a", "x\ny"}, {"b", "\xff"}}),
              "{\"a\":\"x\\ny\",\"b\":\"\xef\xbf\xbd\"}");
}

TEST(Output, NamesTheStatesOfTasks) {
    const auto eventOf = [](std::int32_t state) {
        return Ruvo::RuvoDelivery{.handle = 1, .sender = "me", .event = "VornTSEvent:42",
                                  .message = "42",
                                  .data = {reinterpret_cast<const char*>(&state), sizeof state}};
    };
    EXPECT_EQ(lineOf(eventOf(2)), "VornTSEvent:42 waiting sender=\"me\" message=\"42\"");
    EXPECT_EQ(lineOf(eventOf(0)), "VornTSEvent:42 running sender=\"me\" message=\"42\"");
    EXPECT_EQ(lineOf(eventOf(1)), "VornTSEvent:42 ended sender=\"me\" message=\"42\"");
    EXPECT_EQ(lineOf(eventOf(-1)), "VornTSEvent:42 finished sender=\"me\" message=\"42\"");
    EXPECT_EQ(lineOf(eventOf(9)), "VornTSEvent:42 state 9 sender=\"me\" message=\"42\"");
    const auto json = jsonOf(eventOf(0));
    EXPECT_EQ(json["task"]["handle"], "42");
    EXPECT_EQ(json["task"]["state"], "running");
    auto odd = eventOf(0);
    odd.data += 'x';  // not a state
    EXPECT_FALSE(jsonOf(odd).contains("task"));
}
