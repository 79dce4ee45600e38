// What the three files say together: templates, defaults, and the changes of an older firmware's days.
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "testStore.h"

namespace {

struct Case {
    const char* name;
    std::string templates;
    std::string defaults;
    std::string live;              // one transaction
    std::vector<std::string> log;  // a part of each line
    const char* keys;              // in TestStore's words
    const char* values;

    friend void PrintTo(const Case& test, std::ostream* out) { *out << test.name; }
};

const std::vector<Case> cases = {
    {"EveryKindOfLineCountsInAnyOrder",
     "[wlan]\nssid String \"home\"\nchannel Byte 6\n[empty]\n[wlan]\non Bool 1",
     "\xEF\xBB\xBF# a comment\r\nwifi.ssid[2] String \"two\" # before its instance\r\nlan.mtu Dword 1500\n\n"
     "wifi[2] instance wlan \"abcd\"\nwifi[5].channel Byte 11\nwifi[5] instance wlan 0\n"
     "\"odd\"[4294967295] IP \"fe80::1\"\nflag Bool 255\nmac MAC \"\"\nlast String \"no line break\"",
     "",
     {},
     "lan.mtu odd[4294967295] flag mac last wifi.ssid[2] wifi.ssid[5] wifi.channel[5] wifi.on[2] wifi@0 "
     "wifi@1684234849",
     "1500 fe80::1 255  no line break two home 11 1 5 2"},
    {"BadLinesAreReportedAndTheRestCounts",
     "[t]\nm Dword 1\nm Dword 2\n[bad\nlost Dword 1\n[w]\nx Bool 1\n[dotted]\nv.x Bool 1\ny[1] Bool 1\n",
     "good Dword 1\nbad Dword x\ngood Dword 2\ngood[1] String \"x\"\ns[1] instance t 0\ns[1] instance t 0\n"
     "s[2] instance nope 0\ns[1].m Dword 5\ns.m[1] Dword 6\ns.other[1] Dword 6\ns.m[1] Bool 1\ns[3] Dword 1\n"
     "u.v[1] instance w 0\nu[1] instance dotted 0\ngood erased\n@commit 1\nalsoGood Dword 3\n",
     "",
     {"templates.txt:3: the member is given twice", "templates.txt:4: ", "templates.txt:5: no template is",
      "templates.txt:10: ", "defaults.txt:2: a decimal number is missing",
      "defaults.txt:3: the key is given twice", "defaults.txt:4: the name has another type",
      "defaults.txt:6: the instance is given twice", "defaults.txt:7: unknown template",
      "defaults.txt:9: the key is given twice", "defaults.txt:10: no such instance",
      "defaults.txt:11: the template gives", "defaults.txt:12: the name is",
      "defaults.txt:14: a member's name belongs to", "defaults.txt:15: such a line does not belong",
      "defaults.txt:16: such a line does not belong in this file; the line is skipped"},
     "good alsoGood s.m[1] bad s@0",
     "1 3 5 none 1"},
    {"NewDefaultsReachWhatNobodyChanged",
     "[t]\nm Dword 15\nn Dword 6\n",
     "a Dword 11\nb Dword 12\nc Dword 13\nv[1] Dword 11\ns[1] instance t 0\ns[1].n Dword 16\n",
     "s[3] instance t 0\na Dword 11\nb erased\ns[1].m Dword 50\nv[2] Dword 2\n",
     {},
     "a b c v[1] v[2] s.m[1] s.n[1] s.m[3] s.n[3]",
     "11 none 13 11 2 50 16 15 6"},
    {"DefaultsWinWhereChangesDoNotFitThem",
     "[t]\nm String \"new\"\n",
     "a String \"new\"\nv[1] String \"new\"\ns[1] instance t 0\nx[1] instance t 0\ny[2] instance t 0\n",
     "a Dword 1\ns[1].m Dword 1\nv[1] Dword 1\nv[2] Dword 2\nx[1] Dword 1\ny.m[1] Dword 1\ny.m[2] Dword 2\n",
     {":1: the default has another type and wins", ":2: the template gives the member another type",
      ":3: the default", ":4: the default", ":5: the name is a structure's",
      ":6: the name is a structure member's", ":7: the name"},
     "a v[1] v[2] s.m[1] x.m[1] y.m[2] y.m[1]",
     "new new none new new new none"},
    {"ChangesStayWhenDefaultsGo",
     "[t]\nn Dword 66\n",
     "# none\n",
     "a Dword 100\nb erased\nv[1] Dword 9\ns[2] instance t 4\ns[1].n Dword 8\ns[2].m Dword 7\n"
     "r[2] instance gone 4\nr[2].m Dword 7\n",
     {":5: there is no such instance", ":7: the template \"gone\" is gone; its instance stays"},
     "a b v[1] s.m[2] s.n[2] s.n[1] s@4 r.m[2] r.n[2] r@4",
     "100 none 9 7 66 none 2 7 none 2"},
    {"AUsersInstanceWinsWhollyAndRemovedOnesStayRemoved",
     "[t]\nm Dword 5\n[u]\nx Dword 1\nm Dword 2\n",
     "s[1] instance t 0\ns[2] instance u 0\ns[2].x Dword 9\ns[3] instance t 0\ns[7] instance t 0\n",
     "s[1] removed\ns[2] instance t 4\ns[3] instance t 4\ns[3] removed\n",
     {},
     "s.m[2] s.x[2] s.m[1] s.m[3] s@0 s@4",
     "5 none none none 7 2"},
};

class Files : public testing::TestWithParam<Case>, protected TestStore {};

TEST_P(Files, AreReadAndWrittenAnew) {
    const Case& test = GetParam();
    defaults = test.defaults;
    templates = test.templates;
    mayCreate = true;
    std::string live = test.live;
    store::closeTransaction(live, 1, 0);
    const std::string log = openOn(live);
    EXPECT_EQ(std::ranges::count(log, '\n'), std::ssize(test.log)) << log;
    for (const std::string& part : test.log)
        EXPECT_TRUE(contains(log, part)) << part << '\n' << log;
    EXPECT_EQ(values(test.keys), test.values);
    disk.write(liveFile, "");
    outputOf([this] { EXPECT_TRUE(set("z", 1) && commit()); });
    open();
    EXPECT_EQ(values(test.keys), test.values) << this->live();
}

INSTANTIATE_TEST_SUITE_P(All, Files, testing::ValuesIn(cases),
                         [](const auto& test) { return test.param.name; });

// The same on the system's own calls: a first start, a torn tail, a damaged file; and what the simulated disk
// does not know.
TEST(SystemFiles, AreReadableByAllAndOneProcessHasThem) {
    namespace fs = std::filesystem;
    std::string folder = testing::TempDir() + "storeTest-XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    const std::string live = folder + "/var/deep/live.txt";
    const store::Paths paths{folder + "/defaults.txt", live, folder + "/templates.txt"};
    std::ofstream(paths.defaults) << "a Byte 7\n";
    unsigned char byte = 7;
    int start = 0;
    for (const std::string& added : {std::string(), std::string("a Byte 9\nb"), TestStore::damaged("")}) {
        std::ofstream(live, std::ios::app) << added;
        const std::string log = outputOf([&] {
            store::Database db(nullptr, paths);
            int size = 1;
            unsigned char found = 0;
            EXPECT_EQ(db.dataRead(0, "a", ostrelTypeByte, &size, &found, 0), 0);
            EXPECT_EQ(found, byte++);
            for (const unsigned char written : {found, byte, found, byte}) {
                const long handle = db.dataStartWriteTransaction();
                EXPECT_EQ(db.createElement(handle, "a", 1, &written, ostrelTypeByte), 0);
                EXPECT_EQ(db.dataCommit(handle), 0);
            }
            // The daemon waits for a while, and a child that it forked does not have its lock.
            if (start == 0) {
                EXPECT_EXIT(store::Database(nullptr, paths), testing::ExitedWithCode(255), "");
            }
        });
        EXPECT_EQ(std::ranges::count(log, '\n'), std::max(start++, 1)) << log;
    }
    EXPECT_TRUE(fs::exists(live + ".damaged-1"));
    EXPECT_EQ(fs::status(live).permissions(), fs::perms(0644));
    fs::remove_all(folder);
}

}  // namespace
