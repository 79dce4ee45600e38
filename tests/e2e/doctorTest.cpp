// ostrelCtl doctor in an appliance that is well, and in ones that are not.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>

#include "client.h"
#include "daemon.h"
#include "files.h"
#include "text.h"
#include "tool.h"

namespace {

// Runs doctor: its exit status, and findings that the expressions match. Returns what it printed.
std::string expect(int status, const std::vector<std::string>& findings, const std::string& options = "") {
    const auto [end, output, errors] = runTool("ostrelCtl doctor --timeout 0.2 --log /tmp/log " + options);
    EXPECT_EQ(end, status) << output << errors;
    for (const std::string& finding : findings)
        EXPECT_TRUE(matches(output, finding)) << finding << " in\n" << output;
    EXPECT_EQ(occurrences("\n" + output, "\nBAD ") + occurrences("\n" + output, "\nWARN "),
              occurrences(output, "\n                      -> "))
        << "each has its advice";
    return output;
}

class Doctor : public testing::Test {
protected:
    Doctor() {
        daemon.factory("a Dword 1\n");
        daemon.start();
    }
    Daemon daemon;
};

TEST_F(Doctor, FindsNothingInAnApplianceThatIsWell) {
    expect(0, {"^OK    socket          /tmp/ostrel.sock is served\nOK    ", "--reduced could not start",
               "process         /vemra/bin/ostrelServer, process [0-9]+, user 0\n",
               "OK    rights          nobody else"});
    const std::string findings = json(expect(0, {}, "--json"));
    EXPECT_EQ(json(findings, "0 check"), "\"socket\"");
    EXPECT_EQ(occurrences(findings, "\"state\": \"OK\""), occurrences(findings, "\"check\": ")) << findings;
    EXPECT_EQ(occurrences(findings, "\"advice\": \"\""), occurrences(findings, "\"check\": ")) << findings;
}

TEST_F(Doctor, TellsWhyNobodyCanBeReached) {
    std::rename("/tmp/ostrel.sock", "/tmp/moved");
    expect(3, {"BAD   socket .*, though /vemra/bin/ostrelServer, process [0-9]+, runs"});
    std::rename("/tmp/moved", "/tmp/ostrel.sock");
    daemon.stop();
    expect(3, {"BAD   socket .* is stale", "OK    log's errors    none of the daemon's own"});
    std::remove("/tmp/ostrel.sock");
    daemon.noPlugins();
    writeFile("/tmp/log", "FATAL ERROR :No plugins loaded\n");
    expect(3, {"BAD   socket .*: the daemon does not run", "BAD   fatal error .*: No plugins loaded",
               "BAD   plug-ins        0 of 0"});
}

TEST_F(Doctor, LooksIntoABusyDaemonItsLogAndItsPlugins) {
    daemon.signal(SIGSTOP);
    expect(1, {"BAD   socket .*, but nobody answers in time\n *-> see the line process\n",
               "BAD   process .*ostrelServer, process ([0-9]+), user 0, is stopped\n *-> kill -CONT \\1 "});
    daemon.signal(SIGCONT);
    // The mistakes of clients are none of the daemon's, the plug-in's failure is.
    EXPECT_FALSE(Client().number("none"));
    EXPECT_FALSE(Client().set("none", 1));
    EXPECT_FALSE(Client().commit({list(77)}));
    Client().send(list(code::startWriting) + "behind it");
    daemon.script("p", "restart return 0\n");
    EXPECT_TRUE(Client().set("a", 2));
    std::rename("/tmp/log", "/tmp/log.1");
    std::filesystem::copy("/tmp/log.1", "/tmp/log");
    daemon.plugin("nullTable", "null table\n");
    daemon.plugin("nullRestart", "null restart\n");
    daemon.plugin("throwsAtLoad", "load throw\n");
    daemon.plugin("hangsAtLoad", "load sleep 100000\n");
    // Neither order is the daemon's own to say.
    daemon.plugin("tie", "restartPriority 9\n");
    for (const char* object : {"noExport", "undefinedSymbol", "collides"})
        daemon.plugin(object, "", object);
    const Client holder;
    holder.send(list(code::startWriting));
    ASSERT_TRUE(holder.ask(list(code::instanciate))) << "the sequence is open";
    const std::array<Client, 6> others;
    expect(1,
           {"BAD   socket .* queue full of waiting clients", "OK    process .*ostrelServer, process",
            "WARN  log .*; the daemon writes to /tmp/log.1",
            "WARN  service         p: .Warning. restart failed for client :p .1 in the last 64 KiB.\n",
            "OK    log's errors    none of the daemon's own",
            "BAD   plug-in         nullTable.ostr has no entry table",
            "BAD .* nullRestart.ostr lacks the entry restart", "BAD .* noExport.ostr does not export",
            "BAD .* does not load: undefined symbol: nobodyDefines",
            "BAD .* throwsAtLoad.ostr crashes when it is loaded .signal 6.",
            "BAD .* hangsAtLoad.ostr does not come back",
            "BAD .* collides.ostr may have to share with other plug-ins: _Z4weakPjPPPc _ZN6Shared4nameE; " +
                std::string("exports more than the daemon asks for: _Z5plainPi\n"),
            "OK    plug-ins        collides.ostr, p.ostr, tie.ostr have the load priority 0: their order",
            "OK    plug-ins        collides.ostr, p.ostr have the restart priority 0",
            "OK    plug-ins        3 of 9"});
}

TEST_F(Doctor, TellsWhoElseCanChangeWhatTheDaemonTrusts) {
    const auto all = std::filesystem::perms::all;
    const std::string folder = "/vemra/default/";
    std::filesystem::create_directories("/vemra/tools/bin");
    std::filesystem::create_symlink("/vemra/tools", "/tmp/link");
    writeFile("/vemra/tools/bin/adapt", "");
    writeFile("/tmp/own", "");
    writeFile(folder + "exec.conf",
              "[a]\nwatch = a\nrun = /tmp/link/bin/adapt\n[b]\nwatch = a\nrun = /tmp/own\n"
              "[c]\nwatch = a\nrun = /tmp/later\n");
    std::filesystem::permissions("/vemra/tools", all);
    std::filesystem::permissions(folder + "ostrPlugins/p.ostr", all);
    EXPECT_EQ(chown((folder + "ostrDbDflt.txt").c_str(), 7, 0), 0);
    const std::string seen = expect(
        0, {"WARN  rights          /vemra/tools can be written by everybody, and so /tmp/link/bin/adapt: ",
            "WARN  rights          /tmp is open: everybody can make /tmp/later: ",
            "WARN  rights .*/p.ostr can be written by everybody: ",
            "WARN  rights .*/ostrDbDflt.txt is of user 7: "});
    EXPECT_EQ(occurrences(seen, "WARN  rights"), 4U) << seen;
    for (const std::string& path :
         {folder + "ostrDbDflt.txt", folder + "exec.conf", std::string("/tmp/link")})
        std::filesystem::remove(path);
}

// Until it follows again; and by the line that tells why, not by what came of it.
TEST_F(Doctor, NamesServicesThatDoNotFollow) {
    daemon.stop();
    daemon.factory(
        "a Dword 1\nsystem.hostName String \"\"\nsystem.timeZone String \"Mars\"\nlan.domain String \"\"\n");
    for (const char* name : {"identity", "exec"})
        daemon.plugin(name, "", IMAGE "/default/ostrPlugins/" + std::string(name));
    writeFile("/vemra/default/exec.conf",
              "[bad]\nwatch = a\nrun = /bin/cat /tmp/later\n[hangs]\nwatch = lan.domain\n"
              "run = /bin/sh /tmp/hangs\ndeadline = 1\n[good]\nwatch = a\nrun = /bin/true\n");
    writeFile("/tmp/hangs", "while [ ! -e /tmp/later ]; do sleep 0.05; done\n");
    daemon.start();
    EXPECT_TRUE(daemon.logged("rule hangs: /bin/sh: did not") && daemon.logged("exit status 1"));
    const std::string seen =
        expect(0, {"WARN  service         exec, rule bad: /bin/cat: exit status 1; in front of it: "
                   "/bin/cat: /tmp/later: No such file or directory .1 in",
                   "exec, rule hangs: /bin/sh: did not end within 1 s, it is stopped",
                   "WARN  service         identity: error: system.timeZone: .*/Mars is no time zone .2"});
    EXPECT_EQ(occurrences(seen, "WARN  service"), 3U) << seen;
    writeFile("/tmp/later", "");
    EXPECT_EQ(
        runTool("ostrelCtl apply -", "a Dword 2\nlan.domain String \"x\"\nsystem.timeZone String \"\"\n")
            .status,
        0);
    EXPECT_TRUE(eventually([&] { return occurrences(daemon.log(), ": succeeded again\n") == 2; }));
    EXPECT_EQ(occurrences(expect(0, {}), "WARN  service"), 0U);
    EXPECT_EQ(runTool("ostrelCtl set system.timeZone Venus").status, 0);
    expect(0, {"WARN  service         identity: error: system.timeZone: .*/Venus is no time zone .2 in"});
    std::filesystem::remove("/vemra/default/exec.conf");
    std::filesystem::remove("/tmp/later");
}

TEST_F(Doctor, ChecksFilesAndDisks) {
    daemon.factory("a Dword 1\nb Word 2\n");
    writeFile("/vemra/var/ostrdb.txt", "a Dword 3\n@commit 3 x\n@commit 4 2026-01-01T00:00:00Z 0 196179f3\n");
    for (const char* kept : {"damaged-1", "torn"})
        writeFile(std::string("/vemra/var/ostrdb.txt.") + kept, "");
    expect(1, {"WARN  database .*ostrDbDflt.txt:2: ", "BAD   database        /vemra/var/ostrdb.txt:",
               "WARN  damaged file .*ostrdb.txt.damaged-1", "WARN  torn transaction .*ostrdb.txt.torn"});
    ASSERT_EQ(mount("small", "/vemra/var", "tmpfs", 0, "size=128k"), 0);
    writeFile("/vemra/var/filler", std::string(100000, 'x'));
    expect(1, {"BAD   space           /vemra/var: 28 KiB free"});
    ASSERT_EQ(mount("small", "/vemra/var", "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
    expect(1, {"BAD   space .*, read-only"});
    umount("/vemra/var");
}

}  // namespace
