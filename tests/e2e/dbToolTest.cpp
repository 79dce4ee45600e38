// ostrelDbTool on files that the real daemon wrote: what it prints, its exit status, what becomes of the
// files.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <regex>

#include "client.h"
#include "daemon.h"

namespace fs = std::filesystem;

namespace {

const std::string live = "/vemra/var/ostrdb.txt";
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

struct Outcome {
    int status;
    std::string output;  // standard output, then standard error; runs of blanks are one

    bool operator==(const Outcome&) const = default;
};

Outcome tool(const std::string& arguments, const std::string& input = "") {
    writeFile("/tmp/input", input);
    int status = std::system(
        ("/vemra/bin/ostrelDbTool " + arguments + " </tmp/input >/tmp/tool.out 2>/tmp/tool.err").c_str());
    const std::string output = readFile("/tmp/tool.out") + readFile("/tmp/tool.err");
    return {WEXITSTATUS(status), std::regex_replace(output, std::regex(" +"), " ")};
}

std::string withoutOrigins(const std::string& dump) {
    return std::regex_replace(dump, std::regex(" +# (default|live|template)[^\n]*"), "");
}

// Name, time and content of every file.
std::map<std::string, std::pair<fs::file_time_type, std::string>> tree() {
    std::map<std::string, std::pair<fs::file_time_type, std::string>> files;
    for (const auto& entry : fs::recursive_directory_iterator("/vemra")) {
        if (entry.is_regular_file())
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
        Client client;
        const std::string make = list(40, {{.name = "wifi", .tpltName = "wlan"}});
        EXPECT_TRUE(client.commit({make, list(6, {dword("a", 11)})}));
        EXPECT_TRUE(client.commit({list(6, {dword("b", 22), dword("v", 20, 2)})}));
        EXPECT_TRUE(client.commit({list(6, {dword("a", 33), dword("wifi.channel", 3, 2)})}));
        EXPECT_TRUE(client.commit({make, list(6, {dword("wifi.channel", 9, 3)}), list(10, {{"text"}})}));
    }
    void stop() {
        EXPECT_EQ(daemon.stop(), 0);
        written = readFile(live);
    }
    // Puts the live file back, with the first such text replaced.
    void damage(const std::string& what, const std::string& by) const {
        std::string text = written;
        writeFile(live, text.replace(text.find(what), what.size(), by));
    }

    Daemon daemon;
    std::string written;
};

TEST_F(DbTool, ReadsBesideADaemonAndLeavesWritingToIt) {
    const auto before = tree();
    EXPECT_EQ(tool("check"), (Outcome{0, "0 findings, 0 notes; 5 good transactions with 9 changes\n"}));
    EXPECT_EQ(tool("dump"), (Outcome{0, effective}));
    for (const char* command : {"compact", "import -", "import --replace -", "repair"}) {
        const Outcome refused = tool(command, "a Dword 5\n");
        EXPECT_EQ(refused.status, 3) << command;
        EXPECT_TRUE(contains(refused.output, "a daemon has the database")) << refused.output;
    }
    EXPECT_EQ(tree(), before);
    EXPECT_EQ(tool("dump --no-such-option").status, 2);
    const Outcome unknown = tool("bogus");
    EXPECT_EQ(unknown.status, 2);
    EXPECT_TRUE(unknown.output.starts_with("ostrelDbTool: ") && contains(unknown.output, "bogus"));
}

TEST_F(DbTool, CheckNamesEveryFaultAndReadingChangesNothing) {
    stop();
    writeFile("/vemra/default/ostrDbTmplt.txt", "early Byte 1\n" + templates);
    writeFile("/vemra/default/ostrDbDflt.txt",
              "a Byte 1\nb Dword\n" + defaults + "x[1] instance none 0\nwifi[1].none Byte 1\n");
    damage("b Dword 22\nv[2]", "b Dword 23\nv]2]");
    fs::remove(live + ".lock");
    writeFile(live + ".new", "what a crash left");
    const auto before = tree();
    const Outcome found = tool("check");
    EXPECT_EQ(found.status, 1);
    EXPECT_EQ(
        found.output,
        "/vemra/default/ostrDbTmplt.txt:1: no template is open\n"
        "/vemra/default/ostrDbDflt.txt:2: a decimal number is missing\n"
        "/vemra/default/ostrDbDflt.txt:3: the key is given twice\n"
        "/vemra/default/ostrDbDflt.txt:9: unknown template\n"
        "/vemra/default/ostrDbDflt.txt:10: no such instance, or its template has no such member\n"
        "note: " +
            live + ":3: the default has another type and wins\n" + live +
            ":6: a blank is missing behind the key\n" + live + ":7: the checksum is wrong\n" + live +
            ":10: transaction 4 follows 2\n"
            "note: " +
            live +
            ":5: the daemon goes on with the 2 transactions before this line; repair can save 2 behind it\n"
            "8 findings, 2 notes; 2 good transactions with 2 changes\n");
    for (const char* command : {"dump", "diff 'w*'", "export a", "names keys", "repair --dry-run"})
        EXPECT_FALSE(tool(command).output.empty()) << command;
    EXPECT_EQ(tool("--live /none import --dry-run -", "a Byte 5\n").status, 0);
    EXPECT_EQ(tool("compact").output, "ostrelDbTool: " + live + ":5: damaged; repair it first\n");
    fs::remove(live + ".lock");
    EXPECT_EQ(tree(), before);
    writeFile(live, written.substr(0, written.size() - 3));
    EXPECT_EQ(tool("check").status, 1) << "the defaults' faults";
    EXPECT_TRUE(contains(tool("check").output, "note: " + live + ":11: an unfinished transaction"));
}

TEST_F(DbTool, WhatIsDumpedAndExportedReadsBack) {
    stop();
    const Outcome dump = tool("dump");
    writeFile("/tmp/defaults", dump.output);
    EXPECT_EQ(withoutOrigins(tool("--live /none --defaults /tmp/defaults dump").output),
              withoutOrigins(effective));
    EXPECT_EQ(tool("diff a text v 'wifi.c*'"),
              (Outcome{0,
                       "- a Dword 1\n+ a Dword 33\n- text String \"old # 1\"\n+ text erased\n"
                       "+ v[2] Dword 20\n- wifi[2].channel Dword 6\n+ wifi[2].channel Dword 3\n"
                       "- wifi[3].channel Dword 6\n+ wifi[3].channel Dword 9\n"}));
    EXPECT_EQ(tool("names keys wifi.s").output, "wifi.ssid[1]\nwifi.ssid[2]\nwifi.ssid[3]\n");
    EXPECT_EQ(tool("names vectors").output + tool("names structures").output + tool("names templates").output,
              "v\nwifi\nwlan\n");

    const Outcome exported = tool("export");
    fs::create_directories("/tmp/root/vemra");
    fs::copy("/vemra/default", "/tmp/root/vemra/default", fs::copy_options::recursive);
    EXPECT_EQ(tool("--root /tmp/root import -", exported.output).status, 0);
    EXPECT_EQ(tool("--root /tmp/root dump"), dump);
    EXPECT_EQ(tool("--root /tmp/root diff"), tool("diff"));
    const auto before = tree();
    const Outcome refused =
        tool("import -",
             "a Dword 5\nb Byte 1\n\nwifi[9].ssid String \"x\"\nwhat\n@commit 1\nwifi[9] instance none 0\n"
             "wifi.none[1] Byte 1\nwifi[1].none Byte 1\n");
    EXPECT_EQ(refused.status, 1);
    for (const char* line : {":2: the key has another type", ":4: there is no such instance", ":5: ", ":6: ",
                             ":7: unknown template", ":8: there is no such instance, or", ":9: "})
        EXPECT_TRUE(contains(refused.output, std::string("standard input") + line)) << refused.output;
    for (const char* nowhere : {"--live /none/db.txt compact", "--live /none/db.txt repair"})
        EXPECT_TRUE(contains(tool(nowhere).output, "nothing to do")) << nowhere;
    EXPECT_EQ(tool("--root /none import -", "a Dword 5\n").status, 2);
    EXPECT_FALSE(fs::exists("/none"));
    writeFile("/vemra/default/ostrDbDflt.txt", "v[1] Byte 1\n");
    for (const char* command : {"compact", "import -"})
        EXPECT_TRUE(contains(tool(command, "a Dword 5\n").output, "--force")) << command;
    writeFile("/vemra/default/ostrDbDflt.txt", defaults);
    EXPECT_EQ(readFile(live), written);
    EXPECT_EQ(tool("--root /tmp/root compact --force").status, 0);

    EXPECT_EQ(tool("compact").status, 0);
    EXPECT_EQ(tool("dump"), dump);
    EXPECT_EQ(occurrences(readFile(live), "@commit 6 "), 1U) << "one transaction, which counts on";
    EXPECT_EQ(tool("import --replace -", "b Dword 7\n").status, 0);
    EXPECT_EQ(tool("diff").output, "- b Dword 2\n+ b Dword 7\n");
    daemon.start();
    EXPECT_TRUE(Client().commit({list(40, {{.name = "wifi", .tpltName = "wlan"}})}));
    EXPECT_EQ(Client().number("wifi.channel", 4), 6U) << "primary keys count on";
    EXPECT_FALSE(contains(daemon.log(), live + ":")) << daemon.log();
}

TEST_F(DbTool, RepairSavesWhatItCanAndNamesTheRest) {
    stop();
    const std::string closing =
        written.substr(written.find("@commit 3"), written.find("a Dword 33") - written.find("@commit 3"));
    struct Case {
        std::string what, by, options;
        std::vector<std::string> lost;
        std::string values;  // begins with a, b, the channels of 2 and 3, v[2]
    };
    const Case cases[] = {
        {"b Dword 22",
         "b Dword 23",
         "",
         {":5: the checksum is wrong: b Dword 23", ":6: ", ":7: "},
         "33 2 3 9"},
        {"b Dword 22", "b Dwurd 23", "--lines", {":5: unknown type: b Dwurd 23", ":7: "}, "33 2 3 9 20"},
        {closing, "", "", {":5: the transaction has no closing line: b Dword 22", ":6: "}, "33 2 3 9"},
        {closing, "", "--lines", {}, "33 22 3 9 20"},
        {closing, closing.substr(0, closing.size() - 1) + "?", "", {":7: "}, "33 22 3 9 20"},
        {"b Dword 22\nv[2] Dword 20\n" + closing,
         "",
         "",
         {":5: 1 transaction before this line missing"},
         "33 2 3 9"},
        {"wifi[2] i",
         "wifi[2]_i",
         "",
         {":2: ", ":3: ", ":4: ", ":9: there is no such instance: wifi[2].channel Dword 3"},
         "33 22 none 9 20"},
    };
    const Outcome sound{0, live + " is sound\nkept beside it: " + live + ".damaged-1\n"};
    for (const Case& damaged : cases) {
        SCOPED_TRACE(damaged.what + " -> " + damaged.by + damaged.options);
        fs::remove(live + ".damaged-1");
        damage(damaged.what, damaged.by);
        const std::string original = readFile(live);
        const Outcome repaired = tool("repair " + damaged.options);
        EXPECT_EQ(repaired.status, damaged.lost.empty() ? 0 : 1) << repaired.output;
        EXPECT_EQ(occurrences(repaired.output, live + ':'), damaged.lost.size()) << repaired.output;
        for (const std::string& line : damaged.lost)
            EXPECT_TRUE(contains(repaired.output, live + line)) << repaired.output;
        EXPECT_EQ(readFile(live + ".damaged-1"), original);
        EXPECT_EQ(tool("repair"), sound);
        daemon.start();
        std::string values;
        for (const auto& [key, index] :
             {std::pair("a", 0U), {"b", 0U}, {"wifi.channel", 2U}, {"wifi.channel", 3U}, {"v", 2U}}) {
            const auto number = Client().number(key, index);
            values += number ? std::to_string(*number) : "none";
            values += ' ';
        }
        EXPECT_TRUE(values.starts_with(damaged.values)) << values;
        EXPECT_EQ(daemon.stop(), 0);
    }
    writeFile(live, written + "a Dword 7\nb Dw");
    const Outcome cut = tool("repair");
    EXPECT_EQ(cut.status, 0);
    EXPECT_TRUE(contains(cut.output, live + ":15: never committed: a Dword 7\n")) << cut.output;
    EXPECT_EQ(readFile(live), written);
    EXPECT_FALSE(fs::exists(live + ".damaged-2"));
}

// The daemon has gone on without what stood behind the damage.
TEST_F(DbTool, RepairMergesAKeptFileIntoWhatCameAfterIt) {
    stop();
    damage("b Dword 22", "b Dword 23");
    daemon.start();
    EXPECT_TRUE(Client().commit({list(6, {dword("a", 44), dword("v", 50, 5)})}));
    EXPECT_TRUE(Client().commit({list(40, {{.name = "wifi", .tpltName = "wlan"}}),
                                 list(40, {{.name = "wifi", .tpltName = "wlan"}})}));
    EXPECT_EQ(daemon.stop(), 0);
    const std::string kept = live + ".damaged-1";
    const Outcome merged = tool("repair " + kept);
    EXPECT_EQ(merged.status, 1);
    for (const char* line :
         {":5: the checksum is wrong: b Dword 23", ": the live file has changed it since, too: a Dword 33",
          ": the live file has changed it since, too: wifi[3] instance wlan 0",
          ": the live file has changed it since, too: wifi[3].channel Dword 9"})
        EXPECT_TRUE(contains(merged.output, kept + line)) << merged.output;
    EXPECT_EQ(occurrences(merged.output, "since, too"), 3U) << merged.output;
    EXPECT_EQ(tool("diff").output,
              "- a Dword 1\n+ a Dword 44\n- text String \"old # 1\"\n+ text erased\n+ v[5] Dword 50\n+ "
              "wifi[2] instance wlan 0\n- wifi[2].channel Dword 6\n+ wifi[2].channel Dword 3\n+ wifi[3] "
              "instance wlan 0\n+ wifi[4] instance wlan 0\n");
    const std::string now = readFile(live);
    writeFile("/tmp/other", "no live file\n");
    EXPECT_TRUE(contains(tool("repair /tmp/other").output, "it has no line that begins with @commit"));
    EXPECT_TRUE(contains(tool("repair " + kept).output, "nothing is written"));
    EXPECT_EQ(readFile(live), now);
}

TEST_F(DbTool, ImportWarnsOfWhatTheDaemonCannotUse) {
    stop();
    const std::string lines = "gone erased\nwifi[9] removed\nlong String \"" + std::string(4096, 'x') +
                              "\"\nfits String \"" + std::string(4095, 'x') + "\"\n";
    const Outcome first = tool("import -", lines);
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(occurrences(first.output, "warning: standard input:"), 3U) << first.output;
    const Outcome exported = tool("export");
    EXPECT_EQ(occurrences(tool("import -", exported.output).output, "warning: "), 1U) << "the long one";
    EXPECT_EQ(tool("export"), exported);
}

}  // namespace
