// From the command line to the exit status.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "client.h"
#include "daemon.h"
#include "files.h"
#include "text.h"
#include "tool.h"

namespace {

TEST(Startup, WhatCannotRunEndsWithItsTextAndStatus) {
    Daemon daemon;
    daemon.endsEarly = true;
    const std::string help =
        "Usage: /vemra/bin/ostrelServer [-h] [-l /var/log/ostrel.log] [-d] [-v] [-r] [--key-create-allowed] "
        "\n"
        "Full arguments list:\n";
    const auto expect = [&](const std::string& options, int status, const std::string& part) {
        EXPECT_EQ(daemon.run(options), status) << options;
        EXPECT_TRUE(contains("^" + daemon.output() + "$", part)) << part << " in\n" << daemon.output();
    };
    expect("-d --help -v", 0, "^" + help);
    expect("--log=x", 0, "^unknown argument '--log=x'\n" + help);
    EXPECT_FALSE(std::filesystem::exists("/var/log/ostrel.log"));
    expect("-d -l /missing/log", 0, "^$");
    daemon.noPlugins();
    writeFile("/vemra/default/ostrPlugins/a.ostr.old", "");
    expect("-d", 255, "FATAL ERROR :No plugins loaded\n");
    std::filesystem::remove_all("/vemra/default/ostrPlugins");
    expect("-d", 255, "FATAL ERROR :Cannot open plugin dir\n");
    std::filesystem::remove_all("/tmp/ostrel.sock");
    std::filesystem::create_directory("/tmp/ostrel.sock");
    ASSERT_EQ(mount("in the way", "/tmp/ostrel.sock", "tmpfs", 0, nullptr), 0);
    expect("-d", 255, "error: bind(): 98:/tmp/ostrel.sock\n");
    EXPECT_TRUE(contains(daemon.output(), "FATAL ERROR :Cannot bind\n"));
    EXPECT_EQ(occurrences(daemon.output(), "bind()"), 1U) << "of all tries";
    umount("/tmp/ostrel.sock");
}

// Every local user may put something there.
TEST(Startup, WhatStandsOrComesAtTheSocketsPathStopsNoStart) {
    Daemon daemon;
    std::filesystem::create_directories("/tmp/ostrel.sock/x");
    daemon.start();
    const std::string aside =
        replaced(daemon.log(), "[^]*/tmp/ostrel.sock cannot be removed: it is now ([^\n]*)\n[^]*", "$1");
    EXPECT_TRUE(matches(aside, "^/tmp/ostrel.sock.aside-[0-9]+$") &&
                std::filesystem::is_directory(aside + "/x"))
        << aside;
    EXPECT_EQ(daemon.stop(), 0);
    const auto come = [](const std::stop_token& stop) {
        while (!stop.stop_requested())
            static_cast<void>(!symlink("/tmp/nowhere", "/tmp/ostrel.sock"));
    };
    const std::jthread first(come);
    for (int i = 0; i < 3; ++i) {
        daemon.start();
        EXPECT_EQ(daemon.stop(), 0);
    }
}

TEST(Startup, LinesComeInOrderAndSigtermShutsDown) {
    Daemon daemon;
    daemon.start();
    struct stat info {};
    ASSERT_EQ(stat("/tmp/ostrel.sock", &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0777U);
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_FALSE(contains(daemon.log(), "error: [chmod")) << "how a program ended is seen";
    size_t at = 0;
    for (const char* part :
         {":main():", "** Ostrel v0.1 starting...**\n", "default db:  /vemra/default/ostrDbDflt.txt\n",
          "[ostrLink] binding on port 9910\n", "exec: [chmod 777 /tmp/ostrel.sock]\n",
          "Plugins dir: /vemra/default/ostrPlugins\n", "Plugin p.ostr/p initialized (prio 0)\n",
          "\t** Exiting Stored Messages :0\n", "[ostrel] Plugins loaded, entering main loop\n",
          "exiting due to signal 15\n", "** Ostrel v0.1 exiting...**\n", ">>> Plugin[p.ostr].die()\n"}) {
        const size_t found = daemon.log().find(part, at);
        ASSERT_NE(found, std::string::npos) << part;
        at = found;
    }
}

TEST(Startup, DaemonModeLogsToItsFileAndSigtermJustEndsIt) {
    Daemon daemon;
    ASSERT_EQ(daemon.run(""), 0) << "the parent ends";
    const std::string path = "/var/log/ostrel.log";
    ASSERT_TRUE(eventually([&] { return Client().ask(list(code::read)).has_value(); }));
    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644U);
    EXPECT_TRUE(contains(readFile(path), "** Ostrel v0.1 starting...**\n"));
    EXPECT_FALSE(contains(readFile(path), "[DBG]"));
    EXPECT_EQ(daemon.output(), "");

    EXPECT_TRUE(matches(runTool("../../bin/ps -C ostrelServer -o sid=,pid=").output, "^ *([0-9]+) +\\1\n"))
        << "no terminal's end ends it";
    system("pkill -USR1 ostrelServer; pkill -USR2 ostrelServer");
    system("pkill -HUP ostrelServer");
    EXPECT_TRUE(eventually([&] { return !contains(readFile(path), "starting"); })) << "emptied";
    const Client client;
    EXPECT_TRUE(client.ask(list(code::read)));
    system("pkill -TERM ostrelServer");
    EXPECT_TRUE(client.closed());
    EXPECT_FALSE(contains(readFile(path), "exiting"));
}

TEST(Startup, SecondDaemonStopsAndLeavesTheFirstAlone) {
    Daemon first;
    first.launch("-d");
    ASSERT_TRUE(eventually([] { return Client().ask(list(code::read)).has_value(); }));
    const int status = system("ASAN_OPTIONS=detect_leaks=0 /vemra/bin/ostrelServer -d >/tmp/second");
    EXPECT_EQ(WEXITSTATUS(status), 255);
    EXPECT_TRUE(contains(readFile("/tmp/second"), "FATAL ERROR :Database in use\n"));
    first.signal(SIGHUP);
    EXPECT_TRUE(eventually([&] { return contains(first.output(), "[ostrelServer] Reloading Log file\n"); }));
    EXPECT_TRUE(Client().ask(list(code::read)).has_value()) << "without a log file a hang-up changes nothing";
    first.signal(SIGINT);
    EXPECT_EQ(first.wait(), 0);
    EXPECT_TRUE(contains(first.output(), "exiting due to signal 2\n"));
}

// What the daemon's descriptor is open on.
std::string target(int fd) {
    return runTool("../../bin/readlink /proc/$(pidof ostrelServer)/fd/" + std::to_string(fd)).output;
}

// Whatever was open or closed before: nothing but the log gets log lines, and no program a foreign file.
TEST(Startup, StandardDescriptorsAreThereAndInheritedOnesAreNotPassedOn) {
    Daemon daemon;
    daemon.factory("a Dword 1\n");
    daemon.script("p", "watch *\nrestart execute ls /proc/self/fd >/tmp/fds\n");
    const auto commit = [] { return eventually([] { return Client().set("a", 2); }); };
    daemon.launch("-d -v 7</dev/zero <&- >&- 2>&- #");
    ASSERT_TRUE(commit());
    for (const int fd : {0, 1, 2})
        EXPECT_EQ(target(fd), "/dev/null\n") << fd;
    EXPECT_EQ(target(7), "/dev/zero\n") << "may be meant for a plug-in";
    EXPECT_EQ(readFile("/tmp/fds"), "0\n1\n2\n3\n") << "3 is the folder itself";
    EXPECT_FALSE(contains(readFile("/vemra/var/ostrdb.txt") + readFile("/vemra/var/ostrdb.txt.lock"), "["));
    EXPECT_EQ(daemon.stop(), 0);
    daemon.run("7</dev/zero <&- >&- 2>&- #");
    ASSERT_TRUE(commit());
    EXPECT_NE(target(7), "/dev/zero\n");
    EXPECT_TRUE(contains(readFile("/var/log/ostrel.log"), "starting"));
    const Client last;
    last.send(list(code::shutdown));
    EXPECT_TRUE(last.closed());
}

}  // namespace
