// ostrelDbTool on files that the real daemon wrote: what it prints, its exit status, what becomes of the
// files.
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <thread>

#include "client.h"
#include "daemon.h"
#include "files.h"
#include "text.h"
#include "tool.h"

namespace fs = std::filesystem;

namespace {

const std::string live = "/vemra/var/ostrdb.txt";
const std::string kept = live + ".damaged-1";
const std::string defaults =
    "a Dword 1\nb Dword 2\ntext String \"old # 1\"\nv[1] Dword 10\nwifi[1] instance wlan \"net\"\n"
    "wifi[1].channel Dword 11\n";
const std::string templates = "[wlan]\nssid String \"home\"\nchannel Dword 6\n";
const std::string effective =
    "a Dword 33 # live, default 1\nb Dword 22 # live, default 2\nv[1] Dword 10 # default\n"
    "v[2] Dword 20 # live\nwifi[1] instance wlan \"net\" # default\nwifi[1].channel Dword 11 # default\n"
    "wifi[1].ssid String \"home\" # template wlan\nwifi[2] instance wlan 0 # live\n"
    "wifi[2].channel Dword 3 # live, template wlan 6\nwifi[2].ssid String \"home\" # template wlan\n"
    "wifi[3] instance wlan 0 # live\nwifi[3].channel Dword 9 # live, template wlan 6\n"
    "wifi[3].ssid String \"home\" # template wlan\n";

// Standard output, then standard error; runs of blanks are one.
Outcome tool(const std::string& arguments, const std::string& input = "") {
    const Outcome seen = runTool("ostrelDbTool " + arguments, input);
    return {seen.status, replaced(seen.output + seen.errors, " +", " ")};
}

// The status, and parts of what is printed.
std::string expect(int status, const std::vector<std::string>& parts, const std::string& arguments,
                   const std::string& input = "") {
    const Outcome seen = tool(arguments, input);
    EXPECT_EQ(seen.status, status) << arguments << '\n' << seen.output;
    for (const std::string& part : parts)
        EXPECT_TRUE(contains(seen.output, part)) << arguments << '\n' << part << " in\n" << seen.output;
    return seen.output;
}

std::string withoutOrigins(const std::string& dump) {
    return replaced(dump, " +# (default|live|template)[^\n]*", "");
}

// Name, time and content of every file.
std::map<std::string, std::pair<fs::file_time_type, std::string>> tree() {
    std::map<std::string, std::pair<fs::file_time_type, std::string>> files;
    for (const char* folder : {"/vemra/var", "/vemra/default"}) {
        for (const auto& entry : fs::directory_iterator(folder))
            files[entry.path()] = {entry.last_write_time(), readFile(entry.path())};
    }
    return files;
}

class DbTool : public testing::Test {
protected:
    // Four transactions: lines 2 to 4, 5 to 7, 8 to 10 and 11 to 14. Number 1 is empty.
    DbTool() {
        daemon.factory(defaults, templates);
        daemon.start();
        const Client client;
        EXPECT_TRUE(client.commit({make, list(code::notify, {dword("a", 11)})}));
        EXPECT_TRUE(client.commit({list(code::notify, {dword("b", 22), dword("v", 20, 2)})}));
        EXPECT_TRUE(client.commit({list(code::notify, {dword("a", 33), dword("wifi.channel", 3, 2)})}));
        EXPECT_TRUE(client.commit(
            {make, list(code::notify, {dword("wifi.channel", 9, 3)}), list(code::erase, {{"text"}})}));
        EXPECT_EQ(daemon.stop(), 0);
        written = transactions();
    }
    // Of the live file, without its room.
    static std::string transactions() { return replaced(readFile(live), "# +\n$", ""); }
    // Puts the live file back, with the first such text replaced.
    void damage(const std::string& what, const std::string& by) const {
        std::string text = written;
        writeFile(live, text.replace(text.find(what), what.size(), by) + "#      \n");
    }

    const std::string make = list(code::instanciate, {{.name = "wifi", .tpltName = "wlan"}});
    Daemon daemon;
    std::string written;
};

TEST_F(DbTool, ReadsBesideADaemonAndLeavesWritingToIt) {
    daemon.start();
    const auto before = tree();
    EXPECT_EQ(tool("check"), (Outcome{0, "0 findings, 0 notes; 5 good transactions with 9 changes\n"}));
    EXPECT_EQ(tool("dump"), (Outcome{0, effective}));
    for (const char* command : {"compact", "import -", "repair"})
        expect(3, {"a daemon has the database"}, command, "a Dword 5\n");
    expect(2, {"ostrelDbTool: unknown command bogus; "}, "bogus");
    EXPECT_EQ(tree(), before);
}

// What it sees of a transaction that is being written may be half of it, once.
TEST_F(DbTool, LooksAgainAtWhatIsNotWhole) {
    writeFile("/vemra/var/next", written);
    writeFile(live, written.substr(0, written.size() - 30));
    const int watch = inotify_init1(IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(watch, live.c_str(), IN_CLOSE_NOWRITE), 0);
    std::jthread daemonsWrite([watch] {
        inotify_event event{};
        EXPECT_GT(read(watch, &event, sizeof event), 0) << "the first look is over";
        fs::rename("/vemra/var/next", live);
    });
    expect(0, {"0 findings, 0 notes; 5 good transactions"}, "check");
    daemonsWrite.join();
    close(watch);
}

TEST_F(DbTool, CheckNamesEveryFaultAndReadingChangesNothing) {
    writeFile("/vemra/default/ostrDbTmplt.txt", "early Byte 1\n" + templates);
    writeFile("/vemra/default/ostrDbDflt.txt",
              "a Byte 1\nb Dword\n" + defaults + "x[1] instance none 0\nwifi[1].none Byte 1\n");
    damage("b Dword 22\nv[2]", "b Dword 23\nv]2]");
    fs::remove(live + ".lock");
    writeFile(live + ".new", "what a crash left");
    const auto before = tree();
    const std::string found =
        "/vemra/default/ostrDbTmplt.txt:1: no template is open\n"
        "/vemra/default/ostrDbDflt.txt:2: a decimal number is missing\n"
        "/vemra/default/ostrDbDflt.txt:3: the key is given twice\n"
        "/vemra/default/ostrDbDflt.txt:9: unknown template\n"
        "/vemra/default/ostrDbDflt.txt:10: no such instance, or its template has no such member\n"
        "note: LIVE:3: the default has another type and wins\n"
        "LIVE:6: a blank is missing behind the key\n"
        "LIVE:7: the checksum is wrong\n"
        "LIVE:10: transaction 4 follows 2\n"
        "note: LIVE:5: the daemon goes on with the 2 transactions before this line; repair can save 2 behind "
        "it\n"
        "8 findings, 2 notes; 2 good transactions with 2 changes\n";
    EXPECT_EQ(tool("check"), (Outcome{1, replaced(found, "LIVE", live)}));
    for (const char* command : {"dump", "diff 'w*'", "export a", "names keys"})
        expect(0, {"a"}, command);
    expect(1, {"nothing is written"}, "repair --dry-run");
    expect(0, {}, "--live /none import --dry-run -", "a Byte 5\n");
    for (const char* arguments :
         {"--live /none check", "--live /none diff", "--live /none compact", "--defaults /none check",
          "--root /none check", "import /none", "repair /none"})
        expect(2, {"/none"}, arguments);
    expect(1, {"nothing has the name wlam, \"two words\"\n"}, "dump wlan 'w*' wlam a 'two words' 'x*'");
    expect(0, {"# nothing is changed"}, "diff wifi.ssid");
    writeFile("/tmp/export", "a Dword 5\n");
    expect(1, {"/tmp/export: this is no live file"}, "--live /tmp/export check");
    EXPECT_EQ(tool("compact").output, "ostrelDbTool: " + live + ":5: damaged; repair it first\n");
    fs::remove(live + ".lock");
    EXPECT_EQ(tree(), before);
    writeFile(live, written.substr(0, written.size() - 3));
    expect(1, {"note: " + live + ":11: an unfinished transaction"}, "check");
}

TEST_F(DbTool, WhatIsDumpedAndExportedReadsBack) {
    const Outcome dump = tool("dump");
    writeFile("/tmp/defaults", dump.output);
    writeFile("/tmp/none", "");
    EXPECT_EQ(withoutOrigins(tool("--live /tmp/none --defaults /tmp/defaults dump").output),
              withoutOrigins(effective));
    EXPECT_EQ(tool("diff a text v 'wifi.c*'").output,
              "- a Dword 1\n+ a Dword 33\n- text String \"old # 1\"\n+ text erased\n"
              "+ v[2] Dword 20\n- wifi[2].channel Dword 6\n+ wifi[2].channel Dword 3\n"
              "- wifi[3].channel Dword 6\n+ wifi[3].channel Dword 9\n");
    EXPECT_EQ(tool("names keys wifi.s").output, "wifi.ssid[1]\nwifi.ssid[2]\nwifi.ssid[3]\n");
    EXPECT_EQ(tool("names keys wifi[2]").output, "wifi[2].channel\nwifi[2].ssid\n");
    EXPECT_EQ(tool("names vectors").output + tool("names structures").output + tool("names templates").output,
              "v\nwifi\nwlan\n");

    fs::create_directories("/tmp/root/vemra");
    fs::copy("/vemra/default", "/tmp/root/vemra/default", fs::copy_options::recursive);
    expect(0, {}, "--root /tmp/root import -", tool("export").output);
    EXPECT_EQ(tool("--root /tmp/root dump"), dump);
    EXPECT_EQ(tool("--root /tmp/root diff"), tool("diff"));
    expect(1,
           {"standard input:2: the key has another type", "input:4: there is no such instance", "input:5: ",
            "input:6: ", "input:7: unknown template", "input:8: there is no such instance, or", "input:9: "},
           "import -",
           "a Dword 5\nb Byte 1\n\nwifi[9].ssid String \"x\"\nwhat\n@commit 1\nwifi[9] instance none 0\n"
           "wifi.none[1] Byte 1\nwifi[1].none Byte 1\n");
    fs::create_directories("/tmp/fresh");
    expect(0, {"nothing to do"}, "--root /tmp/fresh compact");
    expect(0, {"nothing to do"}, "--root /tmp/fresh repair");
    expect(2, {}, "--root /none import -", "a Dword 5\n");
    EXPECT_FALSE(fs::exists("/none"));
    writeFile("/vemra/default/ostrDbDflt.txt", "v[1] Byte 1\n");
    expect(1, {"--force"}, "compact");
    expect(1, {"--force"}, "import -", "a Dword 5\n");
    writeFile("/vemra/default/ostrDbDflt.txt", defaults);
    EXPECT_EQ(transactions(), written);
    expect(0, {}, "--root /tmp/root compact --force");

    expect(0, {}, "compact");
    EXPECT_EQ(tool("dump"), dump);
    EXPECT_EQ(occurrences(readFile(live), "@commit 6 "), 1U) << "one transaction, which counts on";
    expect(0, {}, "import --replace -", "b Dword 7\n");
    EXPECT_EQ(tool("diff").output, "- b Dword 2\n+ b Dword 7\n");
    daemon.start();
    EXPECT_TRUE(Client().commit({make}));
    EXPECT_EQ(Client().number("wifi.channel", 4), 6U) << "primary keys count on";
    EXPECT_FALSE(contains(daemon.log(), live + ":")) << daemon.log();
}

TEST_F(DbTool, LinksOfAnImageStayInTheImage) {
    const std::string root = "/tmp/image";
    const std::string exported = tool("export").output;
    fs::create_directories(root + "/vemra/var");
    fs::create_directories(root + "/data");
    fs::copy("/vemra/default", root + "/vemra/default", fs::copy_options::recursive);
    fs::create_symlink("/data/../../data/live.txt", root + live);
    const auto importTo = [&](const std::string& place, const std::string& lock) {
        expect(0, {}, "--root " + root + " import -", exported);
        expect(0, {"1 good transaction with 9 changes"}, "--root " + root + " check");
        EXPECT_TRUE(fs::exists(root + place) && fs::exists(root + lock)) << place;
    };
    importTo("/data/live.txt", live + ".lock");
    fs::remove_all(root + "/vemra/var");
    fs::create_symlink("/data", root + "/vemra/var");
    importTo("/data/ostrdb.txt", "/data/ostrdb.txt.lock");
    EXPECT_FALSE(fs::exists("/data"));
    fs::remove(root + "/vemra/var");
    fs::create_symlink("var", root + "/vemra/var");
    expect(1, {"Too many levels of symbolic links"}, "--root " + root + " dump");
}

TEST_F(DbTool, RepairSavesWhatItCanAndNamesTheRest) {
    const std::string second = "b Dword 22\nv[2] Dword 20\n";
    const std::string closing =
        written.substr(written.find("@commit 3"), written.find("a Dword 33") - written.find("@commit 3"));
    const std::string question = closing.substr(0, closing.size() - 1) + "?";
    struct Case {
        std::string what, by, options;
        std::vector<std::string> lost;
        std::string values;  // of a, b, the channels of 2 and 3, v[2], as far as there are
    };
    const Case cases[] = {
        {"Dword 22", "Dword 23", "", {":5: the checksum is wrong: b Dword 23", ":6: ", ":7: "}, "33 2 3 9"},
        {"Dword 22", "Dwurd 2", "--lines", {":5: unknown type: b Dwurd 2", ":7: "}, "33 2 3 9 20"},
        {closing, "", "", {":5: the transaction has no closing line: b Dword 22", ":6: "}, "33 2 3 9"},
        {closing, "", "--lines", {}, "33 22 3 9 20"},
        {closing, question, "", {":7: "}, "33 22 3 9 20"},
        {second + closing, "", "", {":5: 1 transaction before this line missing"}, "33 2 3 9"},
        {"wifi[2] i",
         "wifi[2]_i",
         "",
         {":2: ", ":3: ", ":4: ", ":9: there is no such instance"},
         "33 22 9 20"},
    };
    for (const Case& damaged : cases) {
        SCOPED_TRACE(damaged.what + " -> " + damaged.by + damaged.options);
        fs::remove(kept);
        damage(damaged.what, damaged.by);
        const std::string original = readFile(live);
        const std::string repaired =
            expect(damaged.lost.empty() ? 0 : 1, damaged.lost, "repair " + damaged.options);
        EXPECT_EQ(occurrences(repaired, live + ':'), damaged.lost.size()) << repaired;
        EXPECT_EQ(readFile(kept), original);
        const std::string sound = " is sound\nkept beside it: ";
        EXPECT_EQ(tool("repair"), (Outcome{0, (live + sound).append(kept + '\n')}));
        daemon.start();
        const std::string lines = runTool("ostrelCtl get a b wifi.channel[2] wifi.channel[3] v[2]").output;
        EXPECT_EQ(replaced(lines, "\\S+ Dword (\\d+)\n", " $1").substr(1), damaged.values);
        EXPECT_EQ(daemon.stop(), 0);
    }
    fs::remove(kept);
    writeFile(live, written + "a Dword 7\nb Dw");
    expect(0, {live + ":15: never committed: a Dword 7\n"}, "repair");
    EXPECT_EQ(readFile(live), written);
    EXPECT_FALSE(fs::exists(kept));
    // What a power cut, or damage, made of the last one.
    damage("channel Dword 9", "channel Dword 8");
    expect(0, {":13: perhaps never committed: wifi[3].channel", "is kept beside"}, "repair");
    EXPECT_EQ(tool("check").output, "0 findings, 0 notes; 4 good transactions with 6 changes\n");
    expect(1, {"0 transactions, 3 single lines", ":4: the checksum is wrong: @commit 5"},
           "repair --lines " + live + ".torn");
    expect(0, {"+ wifi[3] instance wlan 0", "+ wifi[3].channel Dword 8"}, "diff");
}

// The daemon has gone on without what stood behind the damage.
TEST_F(DbTool, RepairMergesAKeptFileIntoWhatCameAfterIt) {
    damage("b Dword 22", "b Dword 23");
    daemon.start();
    EXPECT_TRUE(Client().commit({list(code::notify, {dword("a", 44), dword("v", 50, 5)}), make, make}));
    EXPECT_EQ(daemon.stop(), 0);
    const std::string since = kept + ": the live file has changed it since, too: ";
    const std::string merged = expect(1,
                                      {kept + ":5: the checksum is wrong: b Dword 23", since + "a Dword 33",
                                       since + "wifi[3] instance wlan 0", since + "wifi[3].channel Dword 9"},
                                      "repair " + kept);
    EXPECT_EQ(occurrences(merged, since), 3U) << merged;
    EXPECT_EQ(tool("diff").output,
              "- a Dword 1\n+ a Dword 44\n- text String \"old # 1\"\n+ text erased\n+ v[5] Dword 50\n+ "
              "wifi[2] instance wlan 0\n- wifi[2].channel Dword 6\n+ wifi[2].channel Dword 3\n+ wifi[3] "
              "instance wlan 0\n+ wifi[4] instance wlan 0\n");
    const std::string now = readFile(live);
    writeFile("/tmp/other", "no live file\n");
    expect(1, {"it has no line that begins with @commit"}, "repair /tmp/other");
    expect(1, {"nothing is written"}, "repair " + kept);
    EXPECT_EQ(readFile(live), now);
}

TEST_F(DbTool, ImportWarnsOfWhatTheDaemonCannotUse) {
    const std::string x(4095, 'x');
    const std::string warned =
        expect(0, {}, "import -",
               "gone erased\nwifi[9] removed\nlong String \"" + x + "x\"\nfits String \"" + x + "\"\n");
    EXPECT_EQ(occurrences(warned, "warning: standard input:"), 3U) << warned;
    const Outcome exported = tool("export");
    EXPECT_EQ(occurrences(tool("import -", exported.output).output, "warning: "), 1U) << "the long one";
    EXPECT_EQ(tool("export"), exported);
}

}  // namespace
