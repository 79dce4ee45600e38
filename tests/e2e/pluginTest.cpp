// The plug-in host: loading, order, broadcasts, and what plug-ins may write when.
#include <gtest/gtest.h>

#include <filesystem>

#include "client.h"
#include "daemon.h"
#include "files.h"
#include "text.h"
#include "tool.h"

namespace fs = std::filesystem;

namespace {

class Plugins : public testing::Test {
protected:
    Plugins() {
        daemon.noPlugins();
        daemon.factory(
            "net.ip Dword 1\nnet.mask Dword 2\nwifi.ssid Dword 3\nother Dword 4\n"
            "host[1] instance host \"web\"\nhost[2] instance host \"lan\"\n",
            "[host]\naddress Dword 1\n");
    }
    // Gives the calls up to the first request.
    std::string start() {
        daemon.start();
        client.emplace();
        return daemon.calls();
    }
    bool write(const std::string& key, uint32_t value) { return client->set(key, value); }
    std::optional<uint32_t> number(const std::string& key) { return client->number(key); }

    Daemon daemon;
    std::optional<Client> client;
};

TEST_F(Plugins, LoadAndRestartPrioritiesOrderTheCalls) {
    daemon.plugin("a", "loadPriority 30\nrestartPriority 20\nwatch net*\nwatch wifi*\n");
    daemon.plugin("b", "loadPriority 4294967295\nrestartPriority 10\nwatch net.ip\n");
    daemon.plugin("c", "loadPriority 20\nwatch nothing\n");
    daemon.plugin("d", "loadPriority 31\nrestartPriority 10\nwatch net.mask\n");
    EXPECT_EQ(start(), "c init 5,a init 5,d init 5,b init 5,");
    EXPECT_TRUE(client->commit(
        {list(code::notify, {dword("net.ip", 5), dword("net.mask", 6), dword("wifi.ssid", 7)})}));
    EXPECT_EQ(daemon.calls(), "d writeConf,b writeConf,a writeConf,d restart,b restart,a restart,")
        << "equals as loaded";
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_EQ(daemon.calls(), "c die,a die,d die,b die,");
}

// Cut anywhere: what the loader would map beyond the file's end would end the daemon, and each start after
// it.
TEST_F(Plugins, FilesCutShortAreSkipped) {
    const fs::path folder = "/vemra/default/ostrPlugins";
    daemon.plugin("good", "watch *\n");
    const std::string whole = readFile(folder / "good.ostr");
    const size_t sizes[] = {0, 10, 64, 100, 3000, 20000};
    for (const size_t size : sizes)
        writeFile(folder / ("cut" + std::to_string(size) + ".ostr"), whole.substr(0, size));
    // Its headers tell nonsense.
    std::string bent = whole;
    bent.replace(32, 8, std::string(8, '\xFF'));
    writeFile(folder / "bent.ostr", bent);
    ASSERT_EQ(system(("mkfifo " + (folder / "pipe.ostr.old").string()).c_str()), 0);
    EXPECT_EQ(start(), "good init 5,");
    EXPECT_EQ(occurrences(daemon.log(), ".ostr cannot load as plugin, er="), std::size(sizes) + 1);
    EXPECT_TRUE(contains(daemon.log(), "/cut3000.ostr cannot load as plugin, er=the file is cut short\n"));
    EXPECT_EQ(runTool("ostrelPluginProbe " + (folder / "cut3000.ostr").string()).status, 1)
        << "not ended by a signal";
}

// Both names are called; there is one library, which dies once.
TEST_F(Plugins, AFileThatIsListedTwiceDiesOnce) {
    daemon.plugin("a", "watch other\n");
    daemon.script("b", "watch other\n");
    fs::create_symlink("a.ostr", "/vemra/default/ostrPlugins/b.ostr");
    const std::string calls = start();
    const std::string name = calls.substr(0, 2);  // by which it was loaded first
    EXPECT_EQ(calls, name + "init 5," + name + "init 5,");
    EXPECT_TRUE(write("other", 5));
    EXPECT_EQ(replaced(daemon.calls(), name, ""), "writeConf,writeConf,restart,restart,");
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_EQ(daemon.calls(), name + "die,");
}

TEST_F(Plugins, RequestsForARebootAreOneLineAndCountAlsoWhenTheRestartFailed) {
    daemon.plugin("a", "watch *\nrestart reboot 1\nrestart return 0\n");
    daemon.plugin("b", "watch net*\nrestart reboot 1\n");
    daemon.plugin("c", "watch *\nrestart reboot 2\n");
    start();
    EXPECT_TRUE(write("net.ip", 5));
    EXPECT_EQ(occurrences(daemon.log(), "[OstrelServer] REBOOT REQUIRED\n"), 1U);
    EXPECT_TRUE(write("other", 5));
    EXPECT_EQ(occurrences(daemon.log(), "[OstrelServer] REBOOT REQUIRED\n"), 2U);
    daemon.script("a", "");
    EXPECT_TRUE(write("other", 6));
    EXPECT_EQ(occurrences(daemon.log(), "[OstrelServer] REBOOT REQUIRED\n"), 2U) << "2 asks for none";
}

TEST_F(Plugins, WritesFromRestartAreReplayedAndBroadcast) {
    daemon.plugin(
        "a",
        "watch net.ip\nrestart write other 0 44\nrestart remove host 1\nrestart removeOwner host lan\n"
        "restart new host host dns\nrestart read other 0\n");
    daemon.plugin("b", "watch other\nwatch host\ntriggerOn other\ntriggerOn host\n");
    start();
    EXPECT_TRUE(write("net.ip", 5));
    EXPECT_EQ(
        daemon.calls(),
        "a writeConf,a restart,a write 1,a remove 1,a removeOwner 1,a new 1,a read other 1 4,b trigger other,"
        "b trigger host,b trigger host,b writeConf,b restart,");
    EXPECT_TRUE(daemon.logged("  (1/1) key other (type 3) = <4>[,\\00\\00\\00]\n"));
    EXPECT_EQ(number("other"), 44U);
    EXPECT_EQ(client->number("host.address", 3), 1U);
    EXPECT_EQ(client->number("host.address", 1), std::nullopt);
    EXPECT_EQ(client->number("host.address", 2), std::nullopt);
    EXPECT_TRUE(daemon.logged("\t**<0> Poping Stored Messages :4, other\n"));
}

TEST_F(Plugins, WritesFromInitAreAppliedBeforeTheFirstRequest) {
    daemon.plugin("a", "init write other 0 44\ninit read other 0\ntriggerOn other\ntrigger remove host 1\n");
    daemon.plugin("b", "loadPriority 1\nwatch host\n");
    EXPECT_EQ(
        start(),
        "a init 5,a write 1,a read other 1 4,b init 5,a trigger other,a remove 1,b writeConf,b restart,")
        << "a removal in a trigger of the replay is told";
    EXPECT_EQ(number("other"), 44U);
}

TEST_F(Plugins, WritesFromTriggerAreAppliedAtOnceAndNotBroadcast) {
    daemon.plugin(
        "a",
        "triggerOn net.ip\ntrigger write other 0 44\ntrigger read other 0\ntrigger write missing 0 1\n"
        "trigger remove host 9\ntrigger removeOwner host web\ntrigger new host host dns\n");
    daemon.plugin("b", "watch other\nwatch host\n");
    start();
    EXPECT_TRUE(write("net.ip", 5));
    EXPECT_EQ(daemon.calls(),
              "a trigger net.ip,a write 1,a read other 1 44,a write 0,a remove 0,a removeOwner 1,a new 1,");
    EXPECT_EQ(client->number("host.address", 3), 1U);
    EXPECT_EQ(client->number("host.address", 1), std::nullopt);
    EXPECT_TRUE(daemon.logged("[ostrelServer::popBackStoredMessage] DataWrite failed for <missing>!\n"));
}

TEST_F(Plugins, FailedReplayFollowsItsKind) {
    daemon.plugin("a", "watch net.ip\nrestart new none x own\nrestart write other 0 44\n");
    start();
    EXPECT_TRUE(write("net.ip", 5));
    EXPECT_TRUE(daemon.logged("Instanciate <none> error\n"));
    EXPECT_EQ(number("other"), 4U) << "one transaction";
    daemon.script("a", "");
    EXPECT_TRUE(write("wifi.ssid", 5));
    EXPECT_EQ(occurrences(daemon.log(), "Instanciate <none> error\n"), 2U)
        << "tried again after the next commit";
    EXPECT_EQ(daemon.stop(), 0);
    daemon.script("a", "watch net.ip\nrestart write other 0 44\nrestart write missing 0 1\n");
    start();
    EXPECT_TRUE(write("net.ip", 6));
    EXPECT_TRUE(daemon.logged("DataWrite failed for <missing>!\n"));
    EXPECT_TRUE(write("wifi.ssid", 6));
    EXPECT_EQ(occurrences(daemon.log(), "DataWrite failed for <missing>!\n"), 1U) << "discarded";
    EXPECT_EQ(number("other"), 4U);
}

TEST_F(Plugins, ReducedModeLoadsTheEssentialOnes) {
    daemon.endsEarly = true;
    daemon.plugin("a", "");
    EXPECT_EQ(daemon.run("-d -r"), 255);
    EXPECT_TRUE(contains(daemon.output(), "[ostrel] This plugin is not essential, skipping it\n"));
    EXPECT_TRUE(contains(daemon.output(), "FATAL ERROR :No plugins loaded\n"));
    daemon.plugin("b", "", "essential");
    daemon.start("--reduced");
    EXPECT_EQ(daemon.calls(), "b init 5,");
}

// Any user may make them, and dnsmasq would be silent for long.
TEST_F(Plugins, DnsmasqIsGivenNoMoreHostsOfOneNameThanItCanServe) {
    daemon.factory("lan.domain String \"lan\"\n", "[host]\nname String \"Many\"\naddress IP \"\"\n");
    daemon.plugin("dnsmasq", "", IMAGE "/default/ostrPlugins/dnsmasq");
    start();
    std::string hosts;
    for (int i = 1; i <= 65; ++i) {
        hosts += "host[$n] instance host \"dns\"\nhost[$n].address IP \"10.0.0.n\"\n";
        hosts = replaced(hosts, "n\\b", std::to_string(i));
        if (i < 64)
            continue;
        EXPECT_EQ(runTool("ostrelCtl apply -", hosts).status, 0);
        EXPECT_EQ(contains(daemon.log(), "error: host.name[65]: more than 64 hosts have this name\n"),
                  i == 65);
        hosts.clear();
    }
    EXPECT_FALSE(contains(readFile("/vemra/var/dnsmasq.conf"), "10.0.0.65"));
    EXPECT_TRUE(contains(readFile("/vemra/var/dnsmasq.conf"), "10.0.0.64"));
    std::system("kill -KILL $(cat /run/ostrel-dnsmasq.pid)");
}

}  // namespace
