// From the command line to the exit status.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "client.h"
#include "daemon.h"

namespace {

TEST(Startup, HelpAndBadOptionsEndWithTheUsage) {
    Daemon daemon;
    EXPECT_EQ(daemon.run({"-d", "--help", "-v"}), 0);
    EXPECT_TRUE(
        daemon.output().starts_with("Usage: /vemra/bin/ostrelServer [-h] [-l /var/log/ostrel.log] [-d] [-v] "
                                    "[-r] [--key-create-allowed] \nFull arguments list:\n"))
        << daemon.output();
    EXPECT_TRUE(contains(daemon.output(),
                         "\n         --key-create-allowed                       (non-existing keys "
                         "can be created)\n"));
    EXPECT_EQ(daemon.run({"--log=x"}), 0);
    EXPECT_TRUE(daemon.output().starts_with("unknown argument '--log=x'\nUsage: "));
    EXPECT_EQ(daemon.run({"-l"}), 0);
    EXPECT_TRUE(daemon.output().starts_with("argument missing for option -l\nUsage: "));
    EXPECT_FALSE(std::filesystem::exists("/var/log/ostrel.log"));
}

TEST(Startup, LinesComeInOrderAndSigtermShutsDown) {
    Daemon daemon;
    daemon.start();
    struct stat info {};
    ASSERT_EQ(stat("/tmp/ostrel.sock", &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0777U);
    Client client;
    client.ask(list(20));
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_TRUE(client.closed());
    std::size_t at = 0;
    for (const char* part :
         {":main():", "** Ostrel v0.1 starting...**\n", "default db:  /vemra/default/ostrDbDflt.txt\n",
          "db:          /vemra/var/ostrdb.txt\n", "db tmplt:    /vemra/default/ostrDbTmplt.txt\n",
          "[ostrLink] binding on port 9910\n", "exec: [chmod 777 /tmp/ostrel.sock]\n",
          "Plugins dir: /vemra/default/ostrPlugins\n", "Loading plugin: /vemra/default/ostrPlugins/p.ostr\n",
          "Plugin p.ostr/p initialized (prio 0)\n", "\t** Poping Stored Messages :0\n",
          "\t** Exiting Stored Messages :0\n", "[ostrel] Plugins loaded, entering main loop\n",
          "exiting due to signal 15\n", "** Ostrel v0.1 exiting...**\n", ">>> Plugin[p.ostr].die()\n"}) {
        std::size_t found = daemon.log().find(part, at);
        ASSERT_NE(found, std::string::npos) << part;
        at = found;
    }
    EXPECT_EQ(daemon.calls(), "p init 5,p die,");
}

TEST(Startup, DaemonModeLogsToItsFileAndSigtermJustEndsIt) {
    Daemon daemon;
    ASSERT_EQ(daemon.run({}), 0) << "the parent ends";
    const std::string path = "/var/log/ostrel.log";
    ASSERT_TRUE(eventually([&] { return Client().connected(); }));
    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644U);
    EXPECT_TRUE(contains(readFile(path), "** Ostrel v0.1 starting...**\n"));
    EXPECT_FALSE(contains(readFile(path), "[DBG]"));
    EXPECT_EQ(daemon.output(), "");

    system("pkill -HUP ostrelServer");
    EXPECT_TRUE(eventually([&] { return !contains(readFile(path), "starting"); })) << "emptied";
    Client client;
    EXPECT_TRUE(client.ask(list(20)));
    system("pkill -TERM ostrelServer");
    EXPECT_TRUE(client.closed());
    EXPECT_FALSE(contains(readFile(path), "exiting"));
}

TEST(Startup, WithoutALogFileHangUpReopensNothing) {
    Daemon daemon;
    daemon.launch({"-d"});
    ASSERT_TRUE(eventually([] { return Client().connected(); }));
    daemon.signal(SIGHUP);
    EXPECT_TRUE(eventually([&] { return contains(daemon.output(), "[ostrelServer] Reloading Log file\n"); }));
    daemon.signal(SIGINT);
    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_TRUE(contains(daemon.output(), "exiting due to signal 2\n"));
}

TEST(Startup, FatalConditionsHaveTheirTextAndStatus) {
    Daemon daemon;
    daemon.endsEarly = true;
    EXPECT_EQ(daemon.run({"-d", "-l", "/missing/log"}), 0);
    EXPECT_EQ(daemon.output(), "");
    daemon.noPlugins();
    writeFile("/vemra/default/ostrPlugins/a.ostr.old", "");
    EXPECT_EQ(daemon.run({"-d"}), 255);
    EXPECT_TRUE(contains(daemon.output(), "FATAL ERROR :No plugins loaded\n"));
    std::filesystem::remove_all("/vemra/default/ostrPlugins");
    EXPECT_EQ(daemon.run({"-d"}), 255);
    EXPECT_TRUE(contains(daemon.output(), "FATAL ERROR :Cannot open plugin dir\n"));
    std::filesystem::remove_all("/tmp/ostrel.sock");
    std::filesystem::create_directories("/tmp/ostrel.sock/in the way");
    EXPECT_EQ(daemon.run({"-d"}), 255);
    EXPECT_TRUE(contains(daemon.output(), "error: bind(): 98:/tmp/ostrel.sock\n"));
    EXPECT_TRUE(contains(daemon.output(), "FATAL ERROR :Cannot bind\n"));
}

TEST(Startup, SecondDaemonStopsAndLeavesTheFirstAlone) {
    Daemon first;
    first.start();
    pid_t pid = fork();
    if (pid == 0) {
        execl("/bin/sh", "sh", "-c", "ASAN_OPTIONS=detect_leaks=0 /vemra/bin/ostrelServer -d >/tmp/second",
              nullptr);
        _exit(126);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 255);
    EXPECT_TRUE(contains(readFile("/tmp/second"), "FATAL ERROR :Database in use\n"));
    EXPECT_TRUE(Client().ask(list(20)).has_value());
    EXPECT_EQ(first.stop(), 0);
}

}  // namespace
