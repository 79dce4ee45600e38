// The stock plug-ins with the real programs of the system.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <csignal>
#include <filesystem>

#include "client.h"
#include "daemon.h"

namespace {

std::string stock(const std::string& name) { return IMAGE "/default/ostrPlugins/" + name; }

// What a script of the shell prints.
std::string shell(const std::string& script) {
    writeFile("/tmp/script", "PATH=/vemra/bin:$PATH\n" + script);
    return runTool("../../bin/sh /tmp/script").output;
}

bool apply(const std::string& batch) { return runTool("ostrelCtl apply -", batch).status == 0; }

TEST(StockPlugin, IdentityFollowsTheDatabase) {
    const std::string look = "hostname; cat /etc/hostname /etc/timezone /etc/hosts; date +%Z";
    const std::string before = shell(look);
    Daemon daemon;
    daemon.noPlugins();
    daemon.plugin("identity", "", stock("identity"));
    daemon.factory(readFile(IMAGE "/default/ostrDbDflt.txt"), readFile(IMAGE "/default/ostrDbTmplt.txt"));
    daemon.start();
    EXPECT_EQ(shell(look), before) << "what is not set is left alone";

    EXPECT_TRUE(apply("system.hostName String \"box\"\nsystem.timeZone String \"Asia/Tokyo\"\n"));
    EXPECT_EQ(shell("hostname; getent hosts localhost box.lan router; date +%Z; cat /etc/timezone"),
              "box\n::1             localhost ip6-localhost ip6-loopback\n127.0.1.1       box.lan box\n"
              "192.168.1.1     router.lan router\nJST\nAsia/Tokyo\n");
    daemon.stop();
    daemon.start();
    EXPECT_FALSE(contains(daemon.log(), "is written")) << "it was so already";

    // Beside a good change each bad value prevents all.
    const std::string good = shell(look);
    for (const std::string value :
         {"system.hostName String \"a.b\"", "system.hostName String \"a\\nb\"",
          "system.hostName String \"a_b\"", "system.hostName String \"-a\"", "lan.domain String \"a b\"",
          "host.name[1] String \"a\\n::1 b\"", "system.timeZone String \"../zoneinfo/UTC\"",
          "system.timeZone String \"Asia\"", "system.timeZone String \"zone.tab\"",
          "system.timeZone String \"localtime\"", "system.timeZone String \"tzdata\"",
          "system.timeZone String \"/UTC\""}) {
        const std::string key = value.substr(0, value.find(' '));
        const std::size_t told = occurrences(daemon.log(), "error: " + key + ": ");
        EXPECT_TRUE(apply("system.hostName String \"new\"\nsystem.timeZone String \"UTC\"\n" + value + '\n'));
        EXPECT_EQ(occurrences(daemon.log(), "error: " + key + ": "), told + 1) << value;
        EXPECT_EQ(shell(look), good) << value;
        EXPECT_TRUE(
            apply("system.hostName String \"box\"\nsystem.timeZone String \"Asia/Tokyo\"\n"
                  "lan.domain String \"lan\"\nhost.name[1] String \"router\"\n"));
    }
    EXPECT_EQ(mount("/etc", "/etc", nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(mount(nullptr, "/etc", nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_TRUE(apply("system.hostName String \"new\"\n"));
    EXPECT_TRUE(daemon.logged("error: /etc/hosts.new: Read-only file system\n"));
    EXPECT_EQ(shell(look), good);
    EXPECT_EQ(umount("/etc"), 0);
    EXPECT_TRUE(apply("system.hostName String \"new\"\n"));
    EXPECT_EQ(shell("hostname; getent hosts 127.0.1.1"), "new\n127.0.1.1       new.lan new\n");
}

class Exec : public testing::Test {
protected:
    Exec() {
        daemon.factory("a Dword 1\nb Dword 1\ntext String \"\"\n");
        daemon.noPlugins();
        daemon.plugin("exec", "", stock("exec"));
        std::filesystem::remove("/tmp/copied");
        program("/tmp/copy",
                "echo $OSTREL_RULE $(/vemra/bin/ostrelCtl get a text) >>/tmp/copied\n"
                "while [ -e /tmp/hold ]; do sleep 0.01; done\nexit 3\n");
    }
    static void program(const std::string& path, const std::string& script) {
        writeFile(path, "#!/bin/sh\n" + script);
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
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

    shell(
        "p=$(pidof ostrelExecRunner); kill -KILL $p\n"
        "while [ \"$(ls /proc/$p/fd)\" ]; do sleep 0.01; done\n");
    EXPECT_TRUE(apply("b Dword 3\na Dword 6\n"));
    EXPECT_TRUE(copied(lines + "copy a Dword 6 text String \"x\"\n")) << readFile("/tmp/copied");
    EXPECT_TRUE(daemon.logged("the runner is started, all rules are due\n"));
}

TEST_F(Exec, BadRuleIsLeftOutAndTheOthersWork) {
    const std::pair<std::string, std::string> rules[] = {
        {"run = /x", "1: before the first [RULE]"},
        {"[a b]", "2: not the [NAME] of a rule"},
        {"[a]\nwatch = a\nrun = tmp/copy", "5: the command is not an absolute path"},
        {"[b]\nwatch = a", "6: rule b lacks run"},
        {"[c]\nrun = /x", "8: rule c lacks watch"},
        {"[d]\nwatch = a\nrun = /x\ndeadline = 3601", "13: the deadline is 1 to 3600 seconds"},
        {"[e]\nwatch = a\nwatch = b\nrun = /x", "16: is there twice"},
        {"[f]\nwatch\nwhat = 1", "19: watch without a value"},
        {"", "20: neither watch, run nor deadline"},
        {"[g]\nwatch = a\nrun = /x \x01", "24: control character"},
        {copyRule, ""},
        {"# a second one\n\n[copy]\nwatch = a\nrun = /x", "31: second rule copy"},
        {"[none]\nwatch = a\nrun = /tmp/none", ""},
    };
    std::string text;
    for (const auto& [rule, fault] : rules)
        text += rule + '\n';
    start(text);
    for (const auto& [rule, fault] : rules)
        EXPECT_TRUE(daemon.logged("error: /vemra/default/exec.conf:" + fault + (fault.empty() ? "" : "\n")))
            << fault;
    EXPECT_EQ(occurrences(daemon.log(), "exec.conf:"), 11U);
    EXPECT_TRUE(copied("copy a Dword 1 text String \"\"\n"));
    EXPECT_TRUE(daemon.logged("rule none: /tmp/none: No such file or directory\n"));
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
