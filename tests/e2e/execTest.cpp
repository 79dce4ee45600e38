// The plug-in exec with its runner: commands beside the daemon.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "client.h"
#include "daemon.h"
#include "files.h"
#include "text.h"
#include "tool.h"

namespace {

namespace fs = std::filesystem;

bool apply(const std::string& batch) { return runTool("ostrelCtl apply -", batch).status == 0; }

class Exec : public testing::Test {
protected:
    Exec() {
        daemon.factory("a Dword 1\nb Dword 1\ntext String \"\"\n");
        daemon.descriptorLimit = 8192;
        daemon.softDescriptorLimit = 99;
        daemon.noPlugins();
        daemon.plugin("exec", "", IMAGE "/default/ostrPlugins/exec");
        for (const char* left : {"copied", "leaders", "alive", "services", "children"})
            fs::remove(std::string("/tmp/") + left);
        program(
            "/tmp/copy",
            "ulimit -S -n >/tmp/limit\necho $OSTREL_RULE $(/vemra/bin/ostrelCtl get a text) >>/tmp/copied\n"
            "while [ -e /tmp/hold ]; do sleep 0.01; done\nexit 3\n");
    }
    // What a test leaves running would hold up the next one's commands.
    ~Exec() override {
        std::system(
            "exec 2>/dev/null; kill -KILL $(pidof ostrelExecRunner) $(cat /tmp/services);"
            "for i in /run/ostrel-exec/*; do read -r boot pid rest <$i; kill -KILL -$pid; done;"
            "rm -r /run/ostrel-exec");
    }
    Exec(const Exec&) = delete;
    Exec& operator=(const Exec&) = delete;
    static void program(const std::string& file, const std::string& script) {
        writeFile(file, "#!/bin/sh\n" + script);
        fs::permissions(file, fs::perms::owner_all);
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
    fs::rename("/tmp/log", "/tmp/log.1");
    daemon.signal(SIGHUP);
    EXPECT_TRUE(eventually([] { return fs::exists("/tmp/log"); }));
    fs::remove("/tmp/hold");
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

TEST_F(Exec, SuccessorOfAKilledRunnerEndsWhatThatRanAndNothingElse) {
    // Says whether the first of its kind still is there; one that could not print any more would end.
    program("/tmp/hang",
            "trap '' TERM; umask >/tmp/umask\n"
            "[ -e /tmp/leaders ] && { cat /proc/$(head -n 1 /tmp/leaders)/cmdline; echo end; } >/tmp/alive\n"
            "echo $$ >>/tmp/leaders; while echo tick; do sleep 0.02; done\n");
    program("/tmp/serve", "(while echo serving; do sleep 0.02; done) &\necho $! >>/tmp/services\n");
    const mode_t mask = umask(0);
    start("[hang]\nwatch=b\nrun=/tmp/hang\n[serve]\nwatch=text\nrun=/tmp/serve\n");
    umask(mask);
    EXPECT_TRUE(eventually([&] { return daemon.logged("tick\n") && daemon.logged("serving\n"); }));
    EXPECT_EQ(readFile("/tmp/umask"), "0022\n");
    EXPECT_TRUE(eventually([] { return !fs::exists("/run/ostrel-exec/rule.serve"); })) << "it has ended";
    EXPECT_EQ(std::system("kill -KILL $(pidof ostrelExecRunner);"
                          "while pidof ostrelExecRunner; do sleep 0.01; done"),
              0);
    const std::string before = daemon.log();
    EXPECT_TRUE(eventually([&] {
        const std::string since = daemon.log().substr(before.size());
        return occurrences(since, "tick\n") > 5 && occurrences(since, "serving\n") > 5;
    })) << "what has lost its runner prints on";
    // Of a process with another start time; of an earlier boot.
    EXPECT_EQ(std::system(
                  "setsid sleep 600 & echo $! >>/tmp/services; cd /run/ostrel-exec; set -- $(cat rule.hang);"
                  "echo $1 $(tail -n 1 /tmp/services) $3 /x >rule.gone; sed s/^./x/ rule.hang >rule..."),
              0);
    EXPECT_TRUE(apply("b Dword 2\n"));
    EXPECT_TRUE(eventually([] { return contains(readFile("/tmp/alive"), "end\n"); }));
    EXPECT_EQ(readFile("/tmp/alive"), "end\n") << "no second beside it";
    EXPECT_TRUE(daemon.logged("rule hang: /tmp/hang: was left by a runner that was killed, it is stopped\n"));
    EXPECT_EQ(occurrences(daemon.log(), "was left"), 1U);
    EXPECT_EQ(std::system("kill -0 $(head -n 2 /tmp/services) && ls /run/ostrel-exec >/tmp/records;"
                          "! ps --ppid $(pidof ostrelServer),$(pidof ostrelExecRunner) -o stat= | grep Z"),
              0);
    EXPECT_EQ(readFile("/tmp/records"), "rule.hang\n");
    EXPECT_TRUE(eventually([] { return occurrences(readFile("/tmp/services"), "\n") == 3; }));
}

TEST_F(Exec, OutputIsCutAndStandsInFrontOfTheEnd) {
    program("/tmp/copy",
            "head -c 65536 /dev/zero | tr '\\0' '#'; head -c 3000000 /dev/zero | tr '\\0' '%'; exit 3\n");
    program("/tmp/why", "echo because; exit 4\n");
    start(std::string(copyRule) + "[why]\nwatch=b\nrun=/tmp/why\n[no]\nwatch=b\nrun=/tmp/no\n");
    for (const char* end : {"copy: /tmp/copy: exit status 3", "why: /tmp/why: exit status 4",
                            "no: /tmp/no: No such file or directory"})
        EXPECT_TRUE(eventually([&] { return daemon.logged(end + std::string("\n")); })) << end;
    // The rules print side by side.
    const std::string log = daemon.log();
    EXPECT_EQ(occurrences(log, "#"), 65536U);
    EXPECT_EQ(occurrences(log, "%"), 0U);
    const size_t cut = log.find("ostrelExecRunner: rule copy: /tmp/copy: printed over 64 KiB, the rest is");
    EXPECT_LT(log.rfind('#'), cut);
    EXPECT_LT(cut, log.find("exit status 3"));
    EXPECT_LT(log.find("because"), log.find("exit status 4"));
    EXPECT_TRUE(eventually([] { return fs::is_empty("/run/ostrel-exec"); }));
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
