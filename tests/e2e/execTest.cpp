// The plug-in exec with its runner: commands beside the daemon.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "client.h"
#include "daemon.h"

namespace {

bool apply(const std::string& batch) { return runTool("ostrelCtl apply -", batch).status == 0; }

class Exec : public testing::Test {
protected:
    Exec() {
        daemon.factory("a Dword 1\nb Dword 1\ntext String \"\"\n");
        daemon.descriptorLimit = 8192;
        daemon.softDescriptorLimit = 99;
        daemon.noPlugins();
        daemon.plugin("exec", "", IMAGE "/default/ostrPlugins/exec");
        std::filesystem::remove("/tmp/copied");
        program(
            "/tmp/copy",
            "ulimit -S -n >/tmp/limit\necho $OSTREL_RULE $(/vemra/bin/ostrelCtl get a text) >>/tmp/copied\n"
            "while [ -e /tmp/hold ]; do sleep 0.01; done\nexit 3\n");
    }
    static void program(const std::string& file, const std::string& script) {
        writeFile(file, "#!/bin/sh\n" + script);
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    }
    void start(const std::string& rules) {
        writeFile("/vemra/default/exec.conf", rules);
        daemon.start();
    }
    static bool copied(const std::string& lines) {
        return eventually([&] { return readFile("/tmp/copied") == lines; });
    }

    Daemon daemon;
};

constexpr char copyRule[] = "[copy]\nwatch = a te*\nrun = /tmp/copy\n";

TEST_F(Exec, RunsOnceForACommitAndOnceMoreForAllThatCameMeanwhile) {
    start(copyRule);
    std::string lines = "copy a Dword 1 text String \"\"\n";
    EXPECT_TRUE(copied(lines)) << "at the start\n" << readFile("/tmp/copied");
    EXPECT_TRUE(daemon.logged("ostrelExecRunner: rule copy: /tmp/copy: exit status 3\n"));
    EXPECT_EQ(readFile("/tmp/limit"), "99\n") << "the daemon has another";
    writeFile("/tmp/hold", "");
    EXPECT_TRUE(apply("a Dword 2\ntext String \"x\"\n"));
    EXPECT_TRUE(copied(lines += "copy a Dword 2 text String \"x\"\n")) << readFile("/tmp/copied");
    for (int i = 3; i <= 5; ++i)
        EXPECT_TRUE(apply("a Dword " + std::to_string(i) + "\n"));
    std::filesystem::rename("/tmp/log", "/tmp/log.1");
    daemon.signal(SIGHUP);
    EXPECT_TRUE(eventually([] { return std::filesystem::exists("/tmp/log"); }));
    std::filesystem::remove("/tmp/hold");
    EXPECT_TRUE(copied(lines += "copy a Dword 5 text String \"x\"\n")) << readFile("/tmp/copied");
    EXPECT_TRUE(daemon.logged("exit status 3\n")) << "in the new log";
    EXPECT_TRUE(apply("b Dword 2\n"));

    EXPECT_EQ(std::system("p=$(pidof ostrelExecRunner); kill -KILL $p;"
                          "while [ \"$(ls /proc/$p/fd)\" ]; do sleep 0.01; done"),
              0);
    EXPECT_TRUE(apply("b Dword 3\na Dword 6\n"));
    EXPECT_TRUE(copied(lines + "copy a Dword 6 text String \"x\"\n")) << readFile("/tmp/copied");
    EXPECT_TRUE(daemon.logged("the runner is started, all rules are due\n"));
}

TEST_F(Exec, RunnerThatDoesNotKeepUpLosesNoRule) {
    start("[many]\nwatch = a\nrun = /bin/true\n[copy]\nwatch = b\nrun = /tmp/copy\n");
    const std::string line = "copy a Dword 1 text String \"\"\n";
    EXPECT_TRUE(copied(line));
    EXPECT_EQ(std::system("kill -STOP $(pidof ostrelExecRunner)"), 0);
    std::string batch;
    for (int i = 0; i < 1000; ++i)
        batch += "a Dword 2\n";
    EXPECT_TRUE(apply(batch + "b Dword 2\n"));
    EXPECT_EQ(std::system("kill -CONT $(pidof ostrelExecRunner)"), 0);
    EXPECT_TRUE(copied(line + "copy a Dword 2 text String \"\"\n")) << readFile("/tmp/copied");
}

TEST_F(Exec, HangingCommandIsKilledWithItsGroupAndOutlivedByNoSecond) {
    program("/tmp/hang", "trap '' TERM; sleep 600 & echo $! >>/tmp/children; wait\n");
    start(std::string(copyRule) + "[hang]\nwatch=b\nrun=/tmp/hang\ndeadline=1\n");
    EXPECT_TRUE(eventually([] { return !readFile("/tmp/children").empty(); }));
    EXPECT_TRUE(copied("copy a Dword 1 text String \"\"\n"));
    EXPECT_EQ(Client().number("b"), 1U) << "the daemon serves meanwhile";
    daemon.signal(SIGKILL);
    daemon.wait();
    // A process that nobody waits for keeps its number, but has no command line.
    program("/tmp/copy", "cat /proc/$(head -n 1 /tmp/children)/cmdline >/tmp/alive; echo end >>/tmp/alive\n");
    daemon.start();
    EXPECT_TRUE(eventually([] { return contains(readFile("/tmp/alive"), "end\n"); }));
    EXPECT_EQ(readFile("/tmp/alive"), "end\n") << "no runner beside one whose command runs";
    EXPECT_TRUE(daemon.logged("rule hang: /tmp/hang: did not end within 1 s, it is stopped\n"));
    EXPECT_TRUE(eventually([] { return occurrences(readFile("/tmp/children"), "\n") == 2; }));
}

}  // namespace
