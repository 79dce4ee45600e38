// ostrelCtl doctor in an appliance that is well, and in ones that are not.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>

#include "client.h"
#include "daemon.h"

namespace {

// Runs doctor: its exit status, and findings that the expressions match.
void expect(int status, const std::vector<std::string>& findings, const std::string& options = "") {
    const std::string command = "/vemra/bin/ostrelCtl doctor --timeout 0.5 --log /tmp/log " + options;
    int end = std::system((command + " >/tmp/doctor 2>&1").c_str());
    std::string output = readFile("/tmp/doctor");
    EXPECT_EQ(WEXITSTATUS(end), status) << output;
    for (const std::string& finding : findings)
        EXPECT_TRUE(std::regex_search(output, std::regex(finding))) << finding << " in\n" << output;
    EXPECT_EQ(occurrences(output, "\nBAD ") + occurrences(output, "\nWARN ") + output.starts_with("BAD "),
              occurrences(output, "\n                      -> "))
        << "each has its advice";
}

TEST(Doctor, FindsNothingInAnApplianceThatIsWell) {
    Daemon daemon;
    daemon.start();
    expect(0, {"^OK    socket          /tmp/ostrel.sock is served\nOK    ", "--reduced could not start",
               "process         /vemra/bin/ostrelServer, process [0-9]+, user 0\n"});
    expect(0, {}, "--json");
    const auto findings = nlohmann::json::parse(readFile("/tmp/doctor"), nullptr, false);
    for (const auto& finding : findings)
        EXPECT_EQ(finding["state"].dump() + finding["advice"].dump(), R"("OK""")") << finding;
    EXPECT_EQ(findings[0]["check"], "socket");
}

TEST(Doctor, TellsWhyNobodyCanBeReached) {
    Daemon daemon;
    daemon.start();
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

TEST(Doctor, LooksIntoABusyDaemonItsLogAndItsPlugins) {
    Daemon daemon;
    daemon.factory("a Dword 1\n");
    daemon.start();
    daemon.signal(SIGSTOP);
    expect(1, {"BAD   socket .*, but nobody answers in time\n *-> see the line process\n",
               "BAD   process .*ostrelServer, process ([0-9]+), user 0, is stopped\n *-> kill -CONT \\1 "});
    daemon.signal(SIGCONT);
    // The mistakes of clients are none of the daemon's, the plug-in's failure is.
    EXPECT_FALSE(Client().number("none"));
    EXPECT_FALSE(Client().commit({list(6, {dword("none", 1)})}));
    EXPECT_FALSE(Client().commit({list(77)}));
    Client().send(list(29) + "behind it");
    expect(0, {"OK    log's errors "});
    daemon.script("p", "restart return 0\n");
    EXPECT_TRUE(Client().commit({list(6, {dword("a", 2)})}));
    std::rename("/tmp/log", "/tmp/log.1");
    std::filesystem::copy("/tmp/log.1", "/tmp/log");
    daemon.plugin("null", "null table\n");
    daemon.plugin("half", "null restart\n");
    for (const char* object : {"noTable", "faulty-nobodyDefinesThis", "faulty-abort", "faulty-pause"})
        daemon.plugin(object, "", object);
    Client holder;
    holder.send(list(29));
    std::array<Client, 6> others;
    expect(
        1,
        {"BAD   socket .* queue full of waiting clients", "OK    process .*ostrelServer, process",
         "WARN  log .*; the daemon writes to /tmp/log.1",
         "WARN  log's errors    1 of the daemon's own in the last 64 KiB, the last: .Warning. restart failed",
         "BAD   plug-in         null.ostr has no entry table", "BAD .* half.ostr lacks the entry restart",
         "BAD .* noTable.ostr does not export", "BAD .* does not load: undefined symbol: nobodyDefines",
         "BAD .* faulty-abort.ostr crashes when it is loaded .signal 6.",
         "BAD .* faulty-pause.ostr does not come back", "OK    plug-ins        1 of 7"});
}

TEST(Doctor, ChecksFilesAndDisks) {
    Daemon daemon;
    daemon.factory("a Dword 1\nb Word 2\n");
    daemon.start();
    writeFile("/vemra/var/ostrdb.txt", "a Dword 3\n@commit 3 x\n@commit 4 x\n");
    writeFile("/vemra/var/ostrdb.txt.damaged-1", "");
    expect(1, {"WARN  database .*ostrDbDflt.txt:2: ", "BAD   database        /vemra/var/ostrdb.txt:",
               "WARN  damaged file .*ostrdb.txt.damaged-1"});
    ASSERT_EQ(mount("small", "/vemra/var", "tmpfs", 0, "size=128k"), 0);
    writeFile("/vemra/var/filler", std::string(100000, 'x'));
    expect(1, {"BAD   space           /vemra/var: 28 KiB free"});
    ASSERT_EQ(mount("small", "/vemra/var", "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
    expect(1, {"BAD   space .*, read-only"});
    umount("/vemra/var");
}

}  // namespace
