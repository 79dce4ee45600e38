// Lines as text: what is written is read back, and what is not a line is refused.
#include "text/grammar.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using store::Line;

Line parsed(const std::string& text) {
    Line line;
    const store::Result result = store::parseLine(text, line);
    EXPECT_TRUE(result.ok()) << text << ": " << result.refusal;
    return line;
}

TEST(Grammar, WritesWhatAPersonWouldWrite) {
    store::LineWriter writer;
    writer.value({"lan.mtu"}, store::makeNumber(ostrelTypeDword, 1500));
    writer.value({"two words", 3}, {"caf\xC3\xA9\n\x01\xFF", ostrelTypeString});
    writer.value({"wifi", 1, "on"}, {std::string(1, '\xFF'), ostrelTypeBool});
    // What steers a terminal is not shown, its neighbours are; names with it stay what they are, quoted.
    writer.value({"\u2066"}, {"\u009b\u202e\u061c \u00a0\u202f\u061b", ostrelTypeString});
    writer.erased({"@x"}, store::Origin::created);
    writer.instance({"wifi", 4294967295}, {"wlan", 0x6362});
    writer.instance({"wifi", 2}, {"a b", 7});
    writer.removed({"wifi", 3}, store::Origin::factory);
    writer.lastKey("wifi", 9);
    EXPECT_EQ(writer.text,
              "lan.mtu Dword 1500\n"
              "\"two words\"[3] String \"caf\xC3\xA9\\n\\x01\\xff\"\n"
              "wifi[1].on Bool 255\n"
              "\"\\xe2\\x81\\xa6\" String \"\\xc2\\x9b\\xe2\\x80\\xae\\xd8\\x9c \u00a0\u202f\u061b\"\n"
              "\"@x\" erased # created\n"
              "wifi[4294967295] instance wlan \"bc\"\n"
              "wifi[2] instance \"a b\" 7\n"
              "wifi[3] removed # default\n"
              "wifi last 9\n");
    EXPECT_EQ(writer.lines, 9U);
    EXPECT_EQ(parsed("\"\\xe2\\x81\\xa6\" Byte 1").name, parsed("\u2066 Byte 1").name);
    EXPECT_EQ(parsed("wifi[1] instance wlan \"abcd\"").instance.owner, 0x64636261U);
    EXPECT_EQ(parsed("k erased # created \r").origin, store::Origin::created);
    EXPECT_EQ(parsed("k erased  # by default").origin, store::Origin::unknown);
    EXPECT_EQ(parsed("\t \r").kind, Line::Kind::blank);
    EXPECT_EQ(parsed(" k\tByte  255#x\r").value.bytes, "\xFF");
}

TEST(Grammar, TellsGoodLinesFromBad) {
    const std::string longName(127, 'n');
    std::istringstream good(
        R"(k IP ""|k IP "0.0.0.0"|k IP "fe80::1"|k MAC ""|k MAC "00:1a:2B:33:44:ff"|k MAC "00-1a-2B-33-44-ff"|)" +
        longName + " Bool 1");
    for (std::string text; std::getline(good, text, '|');)
        parsed(text);
    std::istringstream bad(
        R"(k|k Word 1|k dword 1|k Dword|k Dword x|k Dword -1|k Dword 4294967296|k Byte 256|k Bool 1 2|k Dword1|)"
        R"(k[0] Bool 1|k[1 Bool 1|k[] Bool 1|k[4294967296] Bool 1|k[1]Bool 1|k String bare|k String "open|)"
        R"(k String "a\q"|k String "\x00"|k String "\x4"|k IP "1.2.3"|k IP "1.2.3.4/8"|k MAC "00:11:22:33:44"|)"
        R"(k MAC "00:11-22:33:44:55"|k MAC "00:11:22:33:44:5g"|"" Bool 1|"a\n" Bool 1|s[1]. Bool 1|s instance t 1|)"
        R"(s[1] instance t|s[1] instance t "abcde"|s[1].m erased|s removed|s[1] last 4|[t|[t] x|[]|s[1].@m Bool 1|)"
        "k String \"\xED\xA0\x80\"|k String \"\xC0\xAF\"|k String \"\xF4\x90\x80\x80\"|k String \"\xFF\"|"
        "\xFF Bool 1|s[1]." +
        longName.substr(1) + " Bool 1|n" + longName + " Bool 1|k String \"" + '\0' + '"');
    Line line;
    for (std::string text; std::getline(bad, text, '|');)
        EXPECT_FALSE(store::parseLine(text, line).ok()) << text;
    parsed("s[1]." + longName.substr(2) + " Bool 1");
}

}  // namespace
