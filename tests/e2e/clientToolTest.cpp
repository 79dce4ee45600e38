// ostrelCtl against the real daemon: what it prints and its exit status.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <deque>
#include <sstream>

#include "client.h"
#include "daemon.h"
#include "files.h"
#include "text.h"
#include "tool.h"

namespace {

const std::string values = "a Dword 1\ntext String \"old\"\nv[2] IP \"10.0.0.1\"\n\"odd name\" Byte 7\n";

Outcome ctl(const std::string& arguments, const std::string& input = "") {
    return runTool("ostrelCtl " + arguments, input);
}

struct Step {
    std::string arguments;
    Outcome expected{};  // the errors' beginning, of which an empty one means that there are none
    std::string input{};
};

void expect(const std::vector<Step>& steps) {
    for (const auto& [arguments, expected, input] : steps) {
        Outcome seen = ctl(arguments, input);
        if (!expected.errors.empty() && seen.errors.starts_with("ostrelCtl: " + expected.errors))
            seen.errors = expected.errors;
        EXPECT_EQ(seen, expected) << arguments << '\n' << input;
    }
}

class ClientTool : public testing::Test {
protected:
    ClientTool() {
        daemon.factory(values, "[wlan]\nssid String \"home\"\nchannel Byte 6\n");
        daemon.start();
    }
    Daemon daemon;
};

TEST_F(ClientTool, WhatGetPrintsFeedsABatch) {
    const std::string all = "get a text 'v[2]' 'odd name'";
    // Words that the option library, the shell's user or a terminal could misread.
    for (const char* text : {"'[a,b]'", "'[$x]'", "check", "''", "++", "'two\nlines \"quoted\" #[$x]'",
                             "-- --json", "'\xff\033[2J'", "'\u009b2J\u202e'"}) {
        expect({{std::string("set text ") + text}});
        const Outcome changed = ctl("get text");
        EXPECT_EQ(changed.output.find_first_of("\033\xff\xc2\xe2"), std::string::npos) << changed.output;
        expect({{"set text String x"}, {"apply -", {}, changed.output}, {"get text", changed}});
    }
    expect({
        {"apply -", {}, "\xEF\xBB\xBF# all back\r\n\n" + values + "v[3] IP \"::1\" # new\n"},
        {all, {0, values}},
        {"apply -", {}, "v[2] erased\na erased\nv[3] removed\n"},
        {"get text a 'v[3]'",
         {1, "text String \"old\"\n",
          "a: no such key, or its value is too long to be read\nostrelCtl: v[3]: no such key"}},
        {"set a 5", {1, "", "a: no such key"}},
        {"set a Dword 5"},
        {"set --check b Dword 5", {1, "", "b: there is no such key"}},
        {"apply -", {0, "", "no changes\n"}, "# nothing\n"},
    });
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    close(ends[0]);
    dup2(ends[1], 9);
    const std::string unwritable = "cannot write the result; the command itself has succeeded";
    expect({{"get text >/dev/full", {1, "", unwritable}}, {"get text >&9", {1, "", unwritable}}});
    close(ends[1]);
    close(9);
}

TEST_F(ClientTool, WordsAreWhatTheirPlaceMakesThem) {
    expect({
        {"get text -- a", {0, "text String \"old\"\na Dword 1\n"}},
        {"get a -- --json -- ++", {1, "a Dword 1\n", "--json: no such ke"}},
        {"erase text -- --check", {1, "", "--check: t"}},
        {"", {2, "", "a command is required"}},
        {"what", {2, "", "unknown command what;"}},
        {"-- what", {2, "", "unknown command what;"}},
        {"get a --what", {2, "", "unknown option --what;"}},
        {"shutdown -- what", {2, "", "too many arguments: what;"}},
        {"get 'wifi[0].ssid'", {2, "", "wifi[0].ssid: an index"}},
        {"get a --timeout nan", {2, "", "the timeout is 0.001 to"}},
        {"set a", {2, "", "VALUE is required"}},
        {"set a Word 5", {2, "", "Word: the type is"}},
        {"set text home office", {2, "", "home: the type is"}},
        {"set 'v[x]' 10.0.0.9", {1, "", "\"v[x]\": bad index [x]: a number"}},
        {"set 'v[x]' IP 10.0.0.9", {1, "", "\"v[x]\": bad index [x]: a number"}},
        {"get 'v[]'", {1, "", "\"v[]\": bad index []: a number"}},
        {"get v", {1, "", "v: a vector of 1, not a value: get 'v[2]' prints an element, list v"}},
        {"set a Byte 256", {2, "", "a: the number is too large; nothing"}},
        {"remove wifi", {2, "", "wifi: the index"}},
        {"erase 'v[2]'", {2, "", "v[2]: a name"}},
        {"list wifi longer", {2, "", "the owner is"}},
        {"apply /", {2, "", "/: Is a directory"}},
    });
}

TEST(Programs, TellTheirVersionAndRefuseMissingFilesAlike) {
    for (const std::string program :
         {"ostrelCtl", "ostrelDbTool", "ostrelPluginBench", "ostrelPluginProbe", "ostrelExecRunner"})
        EXPECT_EQ(runTool(program + " --version"), (Outcome{0, program + " " OSTREL_VERSION "\n"}));
    const std::string bench = "ostrelPluginBench " IMAGE "/default/ostrPlugins/identity.ostr /none";
    for (const std::string command :
         {"ostrelCtl apply /none", "ostrelDbTool import /none", "ostrelPluginProbe /none.ostr",
          "ostrelPluginBench /none.ostr /none", bench.c_str()})
        EXPECT_EQ(runTool(command).status, 2) << command;
}

TEST_F(ClientTool, LabelsStandForTheInstancesOfABatch) {
    const std::string batch =
        "wifi[$b] instance wlan \"net\"\nwifi[$a-1] instance wlan 7\n"
        "wifi[$b].ssid String \"guest\"\nwifi.ssid[$a-1] String \"[$b]\"\nwifi[1] removed\n"
        "wifi[$gone] instance wlan 7\nwifi[$gone] removed\n";
    expect({
        {"new wlan wifi web", {0, "1\n"}},
        {"apply -",
         {0, "wifi[2] instance wlan \"net\"\nwifi[3] instance wlan 7\nwifi[4] instance wlan 7\n"},
         batch},
        {"set 'wifi[2].none' 5", {1, "", "wifi[2].none: no such key"}},
        {"get 'wifi[2].ssid' 'wifi.ssid[3]'",
         {0, "wifi[2].ssid String \"guest\"\nwifi[3].ssid String \"[$b]\"\n"}},
        {"list wifi web"},
        {"count wlan", {0, "0\n"}},
        {"count wifl 7", {1, "0\n", "wifl: nothing has this name"}},
        {"list wifi.none 7", {1, "", "wifi.none: nothing has this name"}},
        {"remove-owner wifl 7", {1, "", "wifl: nothing has this name"}},
        {"set 'wifi[2].ssid' upstairs"},
        {"apply -", {}, "wifi removed \"net\"\nwifi removed 9 # nobody's\n"},
        {"count wifi net", {0, "0\n"}},
        {"remove 'wifi[3]' 'wifi[9]'",
         {1, "", "wifi[9]: there is no such instance or element; nothing is changed\n"}},
        {"count wifi 7", {0, "1\n"}},
        {"new wlan wifi 0", {0, "5\n"}},
        {"get 'wifi.ssid[5]'", {0, "wifi[5].ssid String \"home\"\n"}},
        {"remove-owner wifi 7"},
        {"count wifi 7", {0, "0\n"}},
        {"remove-owner wifi 7"},
    });
}

TEST_F(ClientTool, AllBadLinesAreReportedAndNothingIsSent) {
    const std::pair<std::string, std::string> lines[] = {
        {"a Dword 5", ""},
        {"a Dword", "missing"},
        {"what", "unknown type"},
        {std::string(128, 'n') + " Dword 1", "127 bytes"},
        {"text String \"" + std::string(4096, 'x') + '"', "text: the value is"},
        {"wifi[7] instance wlan 1", "[$LABEL]"},
        {"wifi[$a] instance wlan web", "missing"},
        {"wifi[$a].ssid String \"only the line before is to blame\"", ""},
        {"wifi[$a] instance wlan \"web\"", "line 7"},
        {"wifi[$new].ssid String \"\"", "not made before"},
        {"wifi[$new] instance wlan \"web\"", ""},
        {"other.ssid[$new] String \"\"", "one of wifi"},
        {"wifi[$b c] removed", "letters"},
        {"wifi removed", "whose"},
        {"wifi removed \"abcde\"", "longer than 4"},
        {"wifi removed 1 2", "behind the owner"},
        {"wifi last 9", "counts"},
        {"[wlan]", "firmware"},
        {"@commit 1", "one transaction"},
    };
    std::string batch;
    for (const auto& [line, reason] : lines)
        batch += line + '\n';
    const Outcome seen = ctl("check -", batch);
    EXPECT_EQ(seen.status, 2);
    std::istringstream errors(seen.errors);
    std::string error;
    size_t number = 0;
    for (const auto& [line, reason] : lines) {
        const std::string place = "ostrelCtl: standard input:" + std::to_string(++number) + ": ";
        EXPECT_TRUE(reason.empty() ||
                    (std::getline(errors, error) && error.starts_with(place) && contains(error, reason)))
            << reason << " in " << error;
    }
    EXPECT_TRUE(std::getline(errors, error) && error == "ostrelCtl: nothing was sent") << error;
    const std::string problems = json(ctl("apply - --json", batch).errors, "error problems");
    EXPECT_EQ(occurrences(problems, "\"reason\": "), 16U);
    EXPECT_EQ(json(problems, "3 key") + json(problems, "3 line"), R"("text"5)");
    EXPECT_FALSE(contains(daemon.log(), "Start Writing")) << "nothing was sent";
}

TEST_F(ClientTool, TrialsAndRefusalsStoreNothingAndCallNoPlugin) {
    daemon.calls();
    const std::string stored = readFile("/vemra/var/ostrdb.txt");
    const std::string good = "a Dword 5\nwifi[$x] instance wlan \"web\"\n";
    const std::string bad = good + "\nwifi[$x].speed Byte 5\na Dword 6\n";
    const std::string why = "/tmp/input:4: wifi[$x].speed: the new instance has no such";
    const std::string made = R"({"instances":[{"structure":"wifi","label":"x","key":)";
    expect({
        {"check -", {}, good},
        {"apply --check --json -", {0, made + "null}]}\n"}, good},
        {"set a 5 --check"},
        {"erase a --check"},
        {"new wlan wifi web --check"},
        {"remove 'v[2]' --check"},
        {"remove-owner wlan web --check"},
        {"check /tmp/input", {1, "", why}, bad},
        {"apply /tmp/input", {1, "", why}, bad},
        {"new none wifi web", {1, "", "wifi: there is no template none"}},
        {"erase wifi", {1, "", "wifi: there is nothing to erase"}},
    });
    const std::string error = ctl("set text Byte 5 --json").errors;
    EXPECT_EQ(json(error, "error key") + json(error, "error status") + json(error, "error reason"),
              R"("text""refused""the key is a String")");
    EXPECT_EQ(readFile("/vemra/var/ostrdb.txt"), stored);
    EXPECT_EQ(daemon.calls(), "");
    expect(
        {{"--json apply -", {0, made + "1}]}\n"}, good}, {"--json new wlan wifi web", {0, "{\"key\":2}\n"}}});
}

TEST_F(ClientTool, JsonHoldsTheOddCases) {
    expect(
        {{"set text '\u00fc\u009b\u202e'"},
         {"get --json text",
          {0, "[{\"name\":\"text\",\"index\":0,\"type\":\"String\",\"value\":\"\u00fc\\u009b\\u202e\"}]\n"}},
         {"get '\u202e'", {1, "", "\"\\xe2\\x80\\xae\": no such"}},
         {"set text 'a\xff\"'"},
         {"list --json v", {0, "[2]\n"}}});
    const Outcome read = ctl("get --json 'odd name' text 'v[2]' 'n\xff'");
    EXPECT_EQ(json(read.output), json(R"([{"name":"odd name","index":0,"type":"Byte","value":7},
        {"name":"text","index":0,"type":"String","value":null,"bytes":"61ff22"},
        {"name":"v","index":2,"type":"IP","value":"10.0.0.1"},
        {"name":"n\ufffd","index":0,"type":null,"value":null}])"));
    EXPECT_EQ(json(read.errors, "error status"), "\"missing\"");
    EXPECT_EQ(json(ctl("what --json").errors, "error status"), "\"invalid\"");
}

// A batch of many frames is still one transaction, and a list has its limit.
TEST_F(ClientTool, LongBatchesAreOneTransaction) {
    std::string batch;
    for (int i = 1; i <= 1000; ++i)
        batch += "v[" + std::to_string(i) + "] IP \"10.1.2.3\"\n";
    expect({{"apply -", {1, "", "standard input:1001: none: "}, batch + "none Byte 1\n"},
            {"count v", {0, "1\n"}}});
    daemon.calls();
    expect({{"apply -", {}, batch}});
    EXPECT_EQ(occurrences(daemon.calls(), "writeConf"), 1U);
    const Outcome listed = ctl("list v --json");
    EXPECT_EQ(listed.status, 1);
    EXPECT_GT(occurrences(json(listed.output), ", "), 100U);
    EXPECT_TRUE(contains(listed.errors, "incomplete") && contains(listed.errors, "of 1000")) << listed.errors;

    // On a terminal, and only there, a bar tells that it waits; it fits, and a signal's message has its own
    // line.
    const Client holder;
    holder.send(list(code::startWriting));
    ASSERT_TRUE(holder.ask(list(code::instanciate)));
    writeFile("/tmp/batch", batch);
    writeFile("/tmp/waits",
              "cd /vemra/bin; stty cols 30\n"
              "for errors in /tmp/plain /dev/stderr\n"
              "do TERM=dumb ./ostrelCtl apply /tmp/batch --timeout 0.8 2>$errors & done; wait\n"
              "TERM=xterm ./ostrelCtl apply /tmp/batch & echo $! >/tmp/pid; wait\n");
    std::system("script -qfc 'sh /tmp/waits' /tmp/screen >/dev/null &");
    const auto shows = [](const std::string& text) {
        return eventually([&] { return contains(readFile("/tmp/screen"), text); });
    };
    const std::string bar = "\r\033[K[" + std::string(17, ' ') + "] 0 of 1000";
    EXPECT_TRUE(shows("ostrelCtl: 0 of 1000\r\nostrelCtl: no answer") && shows(bar + bar))
        << readFile("/tmp/screen");
    EXPECT_EQ(std::system("kill -TERM $(cat /tmp/pid)"), 0);
    EXPECT_TRUE(shows(bar + "\r\nostrelCtl: interrupted; nothing is changed\r\n"));
    EXPECT_TRUE(readFile("/tmp/plain").starts_with("ostrelCtl: no answer")) << readFile("/tmp/plain");
}

TEST_F(ClientTool, TellsBusyFromNotRunning) {
    std::optional<Client> client{std::in_place};
    client->send(list(code::startWriting));
    ASSERT_TRUE(client->ask(list(code::instanciate)));
    // Connected, and in the full queue of those that want to be.
    for (const size_t waiting : {0U, 6U}) {
        std::deque<Client> queue;
        while (queue.size() < waiting)
            queue.emplace_back(SOCK_NONBLOCK);
        for (const char* arguments : {"get a", "set a 5", "shutdown"})
            expect({{arguments + std::string(" --timeout 0.1"), {4, "", "no answer within 100 ms"}}});
    }
    client.emplace();
    expect({{"get a", {0, "a Dword 1\n"}}});
    daemon.script("p", "writeConf sleep 600\n");
    const Outcome late = ctl("set a 5 --timeout 0.3 --json");
    EXPECT_EQ(late.status, 4);
    EXPECT_TRUE(contains(late.errors, "may still be made")) << late.errors;
    EXPECT_EQ(client->number("a"), 5U);
    expect({{"shutdown"}});
    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_TRUE(client->closed());
    expect({{"get a", {3, "", "the daemon is not running: nobody serves"}}});
    EXPECT_EQ(json(ctl("get a --json").errors, "error status"), "\"staleSocket\"");
    unlink("/tmp/ostrel.sock");
    expect({{"set a 5", {3, "", "the daemon is not running: there is no"}}});
    EXPECT_EQ(json(ctl("get a --json").errors, "error status"), "\"notRunning\"");
}

TEST_F(ClientTool, InterruptedTellsWhetherTheChangeHasLeft) {
    daemon.script("p", "writeConf sleep 60000\n");
    std::system(
        "(cd /vemra/bin; ./ostrelCtl --json set a 5 & echo $! >/tmp/pid; wait $!; echo $?) >/tmp/told 2>&1 "
        "&");
    EXPECT_TRUE(daemon.logged(">>> Plugin[p.ostr].writeConf()"));
    EXPECT_EQ(std::system("kill -TERM $(cat /tmp/pid)"), 0);
    EXPECT_TRUE(eventually([] { return readFile("/tmp/told").ends_with("\n143\n"); }))
        << readFile("/tmp/told");
    const std::string told = readFile("/tmp/told");
    EXPECT_TRUE(
        contains(json(told.substr(0, told.find('\n')), "error text"), "interrupted; the change may have"));
}

}  // namespace
