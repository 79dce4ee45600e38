// Plug-ins with one fault each, beside a good one: the daemon does what the documents say, and nothing is
// lost.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <chrono>
#include <deque>
#include <optional>

#include "client.h"
#include "daemon.h"
#include "text.h"

namespace {

struct Fault {
    std::string name;
    std::string script;
    std::vector<std::string> lines;  // of the log; $ stands for the name
};

void PrintTo(const Fault& fault, std::ostream* output) { *output << fault.name; }

std::string nameOf(const testing::TestParamInfo<Fault>& fault) { return fault.param.name; }

class HostilePlugin : public testing::Test, public testing::WithParamInterface<Fault> {
protected:
    HostilePlugin() {
        daemon.factory("net.ip Dword 1\nother Dword 4\nhost[1] instance host \"web\"\n",
                       "[host]\naddress Dword 1\n");
        installTheGoodOne();
    }
    void installTheGoodOne() const {
        daemon.noPlugins();
        daemon.plugin("good", "watch *\ntriggerOn net.ip\nloadPriority 9\nrestartPriority 9\n");
    }
    void install() const {
        const auto& [name, script, lines] = GetParam();
        daemon.plugin(name, "watch net.ip\ntriggerOn net.ip\n" + script, script.empty() ? name : "scripted");
    }
    void start() {
        daemon.start("--key-create-allowed");
        client.emplace();
        EXPECT_TRUE(contains(daemon.calls(), "good init 5,"));
    }
    bool commit(uint32_t ip) const { return client->set("net.ip", ip); }
    void expectLines() const {
        for (const std::string& line : GetParam().lines)
            EXPECT_TRUE(daemon.logged(replaced(line, "\\$", GetParam().name))) << line;
    }
    // A commit and the reads after it work, the good plug-in gets its calls, and the stop is orderly.
    // Returns the calls that the commit led to.
    std::string expectService(uint32_t ip) {
        EXPECT_TRUE(commit(ip));
        EXPECT_EQ(client->number("net.ip"), ip);
        EXPECT_EQ(client->number("host.address", 1), 1U);
        std::string calls = daemon.calls();
        for (const char* call : {"good writeConf,", "good restart,", "good trigger net.ip,"})
            EXPECT_TRUE(contains(calls, call)) << calls;
        EXPECT_EQ(daemon.stop(), 0);
        EXPECT_TRUE(contains(daemon.calls(), "good die,"));
        return calls;
    }

    Daemon daemon;
    std::optional<Client> client;
};

class ServedFault : public HostilePlugin {};

TEST_P(ServedFault, IsLoggedAndStopsNobody) {
    install();
    const auto begin = std::chrono::steady_clock::now();
    start();
    expectService(5);
    EXPECT_TRUE(isSanitized || std::chrono::steady_clock::now() - begin < std::chrono::seconds(5));
    expectLines();
}

const std::string path = "/vemra/default/ostrPlugins/$.ostr";
const std::string skipped = "Loaded 1 plugins\n";
const std::string lacks = "error: IoBlock of plugin " + path + " lacks init, restart or getWatchedValues\n";
const std::string noTable = "error: no IoBlock returned by plugin " + path + "\n";
const std::string untriggered = "No trigger for that plugin getTriggerList:";
const std::string restarted = "<<< Plugin[$.ostr].restart()\n";
const std::string triggered = "<<< Plugin[$.ostr].trigger()\n";
const std::string unwritten = "[Warning] writeConf failed for client :$\n";
const std::string unstarted = "[Warning] restart failed for client :$\n";
const std::string threw = ") threw an exception: scripted\n";

INSTANTIATE_TEST_SUITE_P(
    , ServedFault,
    testing::Values(
        Fault{"undefinedSymbol", "", {"error: file " + path + " cannot load as plugin, er=", skipped}},
        Fault{"noExport", "", {"error: IoBlock function not exported in plugin " + path + "\n", skipped}},
        Fault{"throwsInGetIoFuncs", "getIoFuncs throw\n", {noTable, skipped}},
        Fault{"nullTable", "null table\n", {noTable, skipped}},
        Fault{"nullInit", "null init\n", {lacks, skipped}},
        Fault{"nullRestart", "null restart\n", {lacks, skipped}},
        Fault{"nullGetWatchedValues", "null getWatchedValues\n", {lacks, skipped}},
        Fault{"nullSrcFileName", "null srcFileName\n", {"   src filename:   (null)\n", triggered}},
        Fault{"nullModuleName", "null moduleName\n", {"Plugin $.ostr/(null) initialized", triggered}},
        Fault{"nullWriteConf", "null writeConf\n", {restarted, triggered}},
        Fault{"nullGetTriggerList", "null getTriggerList\n", {restarted, untriggered}},
        Fault{"nullTrigger", "null trigger\n", {restarted, untriggered}},
        Fault{"nullDie", "null die\n", {triggered, "<<< Plugin[$.ostr].die() not done\n"}},
        Fault{"nullPatterns", "watch null\ntriggerOn null\n", {"   [1] <(null)>\n", restarted, triggered}},
        Fault{"nullWatchedList",
              "null watch\n",
              {"$.ostr].getWatchedValues() gave a count of 1 but no patterns\n", triggered}},
        Fault{"nullTriggerList",
              "null triggerOn\n",
              {"$.ostr].getTriggerList() gave a count of 1 but no patterns\n", restarted}},
        Fault{"throwsInWriteConf", "writeConf throw\n", {"$.ostr].writeConf(" + threw, unwritten, restarted}},
        Fault{"returns2InWriteConf", "writeConf return 2\n", {unwritten, restarted}},
        Fault{"throwsInRestart", "restart throw\n", {"$.ostr].restart(" + threw, unstarted}},
        Fault{"returnsMinus1InRestart", "restart return -1\n", {unstarted, triggered}},
        Fault{"throwsANumberInTrigger",
              "trigger throwNumber\n",
              {"$.ostr].trigger() threw an exception: not a std::exception\n", triggered}},
        Fault{"returns0InTrigger", "trigger return 0\n", {triggered}},
        Fault{"throwsInDie", "die throw\n", {"$.ostr].die(" + threw, "Suicide failed for plugin\n"}},
        Fault{"returns0InDie", "die return 0\n", {"Suicide failed for plugin\n"}},
        Fault{"hasAHugePatternList", "watch x 100000\n", {"   [100000] <x99999>\n", restarted}}),
    nameOf);

class FatalFault : public HostilePlugin {};

TEST_P(FatalFault, EndsTheDaemonAndNothingCommittedIsLost) {
    start();
    expectService(5);
    install();
    daemon.endsEarly = true;
    const bool atStart = !contains(GetParam().name, "WriteConf");
    if (atStart) {
        daemon.launch("-d -v -l /tmp/log");
    } else {
        start();
        EXPECT_FALSE(commit(6));
    }
    EXPECT_EQ(daemon.wait(), 255);
    expectLines();
    EXPECT_FALSE(contains(daemon.calls(), "die"));
    daemon.endsEarly = false;
    installTheGoodOne();
    start();
    EXPECT_EQ(client->number("net.ip"), atStart ? 5U : 6U);
    EXPECT_EQ(client->number("other"), 4U);
    EXPECT_EQ(client->number("host.address", 2), std::nullopt);
    expectService(7);
}

const std::string init = "FATAL ERROR :Init failed for plugin\n";
const std::string watched = "FATAL ERROR :Cannot get watched values\n";
const std::string triggers = "FATAL ERROR :Cannot get trigger values\n";
const std::string mayNotWrite = "error: a client is not allowed to write value in its writing state !\n";
const std::string mayNotChange =
    "error: a client is not allowed to instanciate value in its writing state !\n";

INSTANTIATE_TEST_SUITE_P(
    , FatalFault,
    testing::Values(Fault{"throwsInInit", "init throw\n", {"$.ostr].init(" + threw, init}},
                    Fault{"returns2InInit", "init return 2\n", {init}},
                    Fault{"throwsInGetWatchedValues", "getWatchedValues throw\n", {watched}},
                    Fault{"returns0InGetWatchedValues", "getWatchedValues return 0\n", {watched}},
                    Fault{"throwsInGetTriggerList", "getTriggerList throwNumber\n", {triggers}},
                    Fault{"returnsMinus1InGetTriggerList", "getTriggerList return -1\n", {triggers}},
                    Fault{"writesInWriteConf", "writeConf write other 0 44\n", {mayNotWrite}},
                    Fault{"removesInWriteConf", "writeConf remove host 1\n", {mayNotChange}},
                    Fault{"removesOwnersInWriteConf", "writeConf removeOwner host web\n", {mayNotChange}},
                    Fault{"instantiatesInWriteConf", "writeConf new host host web\n", {mayNotChange}}),
    nameOf);

TEST_F(HostilePlugin, MayWriteInEveryRestartUntilTheReplayIsStopped) {
    daemon.plugin("writes", "watch net.ip\nwatch other\nrestart write other 0 44\n");
    start();
    EXPECT_TRUE(commit(5));
    EXPECT_TRUE(daemon.logged("Replay stopped after 100 passes, next is <other>\n"));
    EXPECT_EQ(occurrences(daemon.calls(), "writes restart,"), 101U);
    EXPECT_EQ(client->number("other"), 44U);
    expectService(6);
}

// Once per change, in the order of the commit, after the restarts.
TEST_F(HostilePlugin, MayHaveHundredsOfTriggersThatWrite) {
    daemon.plugin("t", "triggerOn t 300\ntrigger write other 0 44\n");
    start();
    std::vector<std::string> messages{list(code::notify, {dword("untriggered", 7)})};
    std::string calls = "good writeConf,good restart,";
    for (int i = 600; i-- > 0;) {
        const std::string key = "t" + std::to_string(i % 300);
        messages.push_back(list(code::notify, {dword(key, 7)}));
        calls += "t trigger " + key + ",t write 1,";
    }
    EXPECT_TRUE(client->commit(messages));
    EXPECT_EQ(daemon.calls(), calls);
    EXPECT_TRUE(daemon.logged("[OstrelServer] Trigger t299 works for module t, invoking callback\n"));
    EXPECT_EQ(client->number("other"), 44U);
}

// What is durable must not be taken for refused: without memory to tell the plug-ins of it the daemon ends.
TEST_F(HostilePlugin, LeavesNoMemoryBehindACommit) {
    if (isSanitized)
        GTEST_SKIP() << "memory that ends is an error of its own there";
    daemon.plugin("starves", "watch net.ip\nrestart fill many 5000\nrestart starve\n");
    start();
    EXPECT_FALSE(commit(5));
    EXPECT_EQ(daemon.wait(), -SIGABRT);
    installTheGoodOne();
    start();
    EXPECT_EQ(client->number("net.ip"), 5U);
}

// It waits for memory: who comes meanwhile, or needs more, may be dropped.
TEST_F(HostilePlugin, LeavesNoMemoryBehindTheLastCall) {
    if (isSanitized)
        GTEST_SKIP() << "as above";
    daemon.verbose = false;
    daemon.plugin("starves", "triggerOn net.ip\ntrigger starve\n");
    start();
    for (const std::string& message :
         {list(code::startWriting), list(code::notify, {dword("net.ip", 5)}), list(code::commit)})
        client->send(message);
    client->sayName(std::string(4000, 'x'));
    EXPECT_TRUE(client->closed());
    std::deque<Client> crowd;
    EXPECT_TRUE(eventually([&] {
        for (int i = 0; i < 20; ++i)
            crowd.emplace_back(SOCK_NONBLOCK);
        return contains(daemon.log(), "[OstrelServer] Out of memory for a new client\n");
    }));
    EXPECT_TRUE(daemon.logged("[ostrServer::PopMessage] Out of memory\n"));
    daemon.limitMemory(size_t{8} << 20U);
    crowd.clear();
    EXPECT_TRUE(eventually([] { return Client().number("net.ip") == 5U; }));
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(HostilePlugin, MayStoreThousandsOfWritesInInit) {
    daemon.plugin("writes", "init fill many 5000\n");
    start();
    EXPECT_EQ(client->count("many"), 5000U);
    EXPECT_EQ(client->number("many", 5000), 5000U);
    expectService(5);
}

TEST_F(HostilePlugin, IsRefusedOddArgumentsWhereWritesAreStoredAndWhereTheyAreApplied) {
    daemon.plugin("odd", "watch net.ip\ntriggerOn net.ip\nrestart odd 3\ntrigger odd 77\n");
    start();
    const std::string calls = expectService(5);
    EXPECT_TRUE(contains(calls, "odd 24,") && contains(calls, "odd 25,")) << calls;
    const std::string log = daemon.log();
    EXPECT_EQ(occurrences(log, "error: invalid arguments\n"), 2 * 18U);
    EXPECT_EQ(occurrences(log, "error: invalid arguments [key="), 2 * 4U);
    EXPECT_EQ(occurrences(log, "nothing to write\n"), 2U);
    EXPECT_EQ(occurrences(log, "[Ostrel] DataReWrite failed for <kept>!\n"), 1U);
    start();
    EXPECT_EQ(client->number("kept", 1), 44U) << "what it rightly wrote";
}

}  // namespace
