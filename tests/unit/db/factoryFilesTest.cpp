// Templates and defaults: what counts, in which order, and what is reported.
#include "testStore.h"

namespace {

class FactoryFiles : public testing::Test, protected TestStore {};

TEST_F(FactoryFiles, EveryKindOfLineCountsInAnyOrder) {
    defaults =
        "\xEF\xBB\xBF# a comment\r\n"
        "wifi.ssid[2] String \"two\" # before its instance\r\n"
        "lan.mtu Dword 1500\n\n"
        "wifi[2] instance wlan \"abcd\"\n"
        "wifi[5].channel Byte 11\n"
        "wifi[5] instance wlan 0\n"
        "\"odd name\"[4294967295] IP \"fe80::1\"\n"
        "flag Bool 255\nmac MAC \"\"\n"
        "last String \"no line break behind\"";
    templates = "[wlan]\nssid String \"home\"\nchannel Byte 6\n[empty]\n[wlan]\non Bool 1";
    EXPECT_EQ(open(), "");
    EXPECT_EQ(get("odd name", 4294967295), "fe80::1");
    EXPECT_EQ(values("lan.mtu flag mac last"), "1500 255  no line break behind");
    EXPECT_EQ(values("wifi.ssid[2] wifi.ssid[5] wifi.channel[2] wifi.channel[5] wifi.on[5]"),
              "two home 6 11 1");
    EXPECT_EQ(keys("wifi", 0x64636261), Keys{2});
    EXPECT_EQ(keys("wifi"), Keys{5});
    EXPECT_EQ(make("wlan", "wifi"), 6U) << "keys count on from the defaults";
    EXPECT_NE(make("empty", "none"), 0U);
}

TEST_F(FactoryFiles, ABadLineIsReportedWithItsPlaceAndTheRestCounts) {
    const std::vector<std::pair<std::string, std::string>> lines = {
        {"good Dword 1", ""},
        {"bad Dword x", "a decimal number is missing"},
        {"good Dword 2", "the key is given twice"},
        {"good[1] String \"x\"", "another type"},
        {"s[1] instance t 0", ""},
        {"s[1] instance t 0", "given twice"},
        {"s[2] instance nope 0", "unknown template"},
        {"s[1].m Dword 5", ""},
        {"s.m[1] Dword 6", "given twice"},
        {"s.m[2] Dword 6", "no such instance"},
        {"s.other[1] Dword 6", "no such instance"},
        {"s.m[1] Bool 1", "another type"},
        {"s[3] Dword 1", "a structure's"},
        {"u.v[1] instance w 0", ""},
        {"u[1] instance dotted 0", "belongs to another structure"},
        {"[t]", "does not belong"},
        {"good erased", "does not belong"},
        {"@commit 1", "does not belong"},
        {std::string(128, 'n') + " Bool 1", "longer than 127"},
        {"alsoGood Dword 3", ""},
    };
    templates = "[t]\nm Dword 1\nm Dword 2\n[bad\nlost Dword 1\n[w]\nx Bool 1\n[dotted]\nv.x Bool 1\n";
    for (const auto& [line, reason] : lines)
        defaults += line + '\n';
    const std::string log = open();
    size_t reported = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        const size_t at = log.find("/defaults.txt:" + std::to_string(i + 1) + ": ");
        const std::string report = at != std::string::npos ? log.substr(at, log.find('\n', at) - at) : "";
        EXPECT_EQ(report.empty(), lines[i].second.empty()) << lines[i].first << '\n' << log;
        EXPECT_TRUE(contains(report, lines[i].second)) << lines[i].first << '\n' << report;
        reported += report.empty() ? 0U : 1U;
    }
    for (const char* place : {"/templates.txt:3: ", "/templates.txt:4: ", "/templates.txt:5: no template is"})
        EXPECT_TRUE(contains(log, place)) << log;
    EXPECT_EQ(lineCount(log), reported + 3) << log;
    EXPECT_EQ(values("good alsoGood s.m[1] bad"), "1 3 5 none");
    EXPECT_EQ(keys("s"), Keys{1});
}

}  // namespace
