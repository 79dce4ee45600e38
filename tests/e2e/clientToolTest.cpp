// ostrelCtl against the real daemon: what it prints and its exit status.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "client.h"
#include "daemon.h"

namespace {

using Json = nlohmann::json;

struct Outcome {
    int status;
    std::string output;
    std::string errors{};

    bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& outcome, std::ostream* stream) {
    *stream << outcome.status << "\n" << outcome.output << outcome.errors;
}

const Outcome silent{0, ""};

Outcome ctl(const std::string& arguments, const std::string& input = "") {
    writeFile("/tmp/input", input);
    std::string command = "/vemra/bin/ostrelCtl " + arguments + " </tmp/input >/tmp/ctl 2>/tmp/errors";
    int status = std::system(command.c_str());
    return {WEXITSTATUS(status), readFile("/tmp/ctl"), readFile("/tmp/errors")};
}

Json json(const std::string& text) { return Json::parse(text, nullptr, false); }

class ClientTool : public testing::Test {
protected:
    ClientTool() {
        daemon.factory("a Dword 1\ntext String \"old\"\nv[2] IP \"10.0.0.1\"\n\"odd name\" Byte 7\n",
                       "[wlan]\nssid String \"home\"\nchannel Byte 6\n");
        daemon.start();
    }
    Daemon daemon;
};

TEST_F(ClientTool, WhatGetPrintsFeedsABatch) {
    const std::string lines = "a Dword 1\ntext String \"old\"\nv[2] IP \"10.0.0.1\"\n\"odd name\" Byte 7\n";
    const std::string all = "get a text 'v[2]' 'odd name'";
    EXPECT_EQ(ctl(all), (Outcome{0, lines}));
    // Words that the option library, the shell's user or a terminal could misread.
    for (const char* text :
         {"'[a,b]'", "check", "''", "'two\nlines \"quoted\" #[$x]'", "-- --json", "'\xff\033[2J'"}) {
        EXPECT_EQ(ctl(std::string("set text ") + text), silent) << text;
        Outcome changed = ctl("get text");
        EXPECT_EQ(changed.output.find_first_of("\033\xff"), std::string::npos) << changed.output;
        EXPECT_EQ(ctl("set text String x"), silent);
        EXPECT_EQ(ctl("apply -", changed.output), silent) << changed.output;
        EXPECT_EQ(ctl("get text"), changed);
    }
    EXPECT_EQ(ctl("apply -", "\xEF\xBB\xBF# all back\r\n\n" + lines + "v[3] IP \"::1\" # new\n"), silent);
    EXPECT_EQ(ctl(all), (Outcome{0, lines}));
    EXPECT_EQ(ctl("apply -", "v[2] erased\na erased\nv[3] removed\n"), silent);
    EXPECT_EQ(ctl("get text a 'v[3]'"),
              (Outcome{1, "text String \"old\"\n",
                       "ostrelCtl: a: no such key, or its value is too long to be read\n"
                       "ostrelCtl: v[3]: no such key, or its value is too long to be read\n"}));
    EXPECT_EQ(ctl("set a 5").status, 1) << "a type is wanted now";
    EXPECT_EQ(ctl("set a Dword 5"), silent);
    EXPECT_EQ(ctl("set --check b Dword 5").status, 1);
    for (const char* output : {">/dev/full", "| :"}) {
        std::system(
            (std::string("exec bash -c 'set -o pipefail; (sleep 0.2; /vemra/bin/ostrelCtl get text) ") +
             output + "; echo $?' >/tmp/status 2>/tmp/errors")
                .c_str());
        EXPECT_EQ(readFile("/tmp/status"), "1\n") << output;
        EXPECT_TRUE(contains(readFile("/tmp/errors"), "has succeeded")) << output;
    }
    EXPECT_EQ(ctl("apply -", "# nothing\n"), (Outcome{0, "", "ostrelCtl: no changes\n"}));
}

TEST_F(ClientTool, WordsBehindTwoDashesAreArguments) {
    EXPECT_EQ(ctl("get text -- a"), (Outcome{0, "text String \"old\"\na Dword 1\n"}));
    EXPECT_EQ(ctl("get a -- --json -- ++").errors.substr(0, 29), "ostrelCtl: --json: no such ke");
    EXPECT_EQ(ctl("erase text -- --check").errors.substr(0, 21), "ostrelCtl: --check: t");
    EXPECT_EQ(ctl("set text ++"), silent);
    EXPECT_EQ(ctl("get text").output, "text String \"++\"\n");
    for (const auto& [words, error] :
         {std::pair("what", "unknown command what;"), std::pair("-- what", "unknown command what;"),
          std::pair("get a --what", "unknown option --what;"),
          std::pair("shutdown -- what", "too many arguments: what;"),
          std::pair("get 'wifi[0].ssid'", "wifi[0].ssid: an index")})
        EXPECT_TRUE(contains(ctl(words).errors, error)) << ctl(words).errors;
}

TEST_F(ClientTool, LabelsStandForTheInstancesOfABatch) {
    EXPECT_EQ(ctl("new wlan wifi web"), (Outcome{0, "1\n"}));
    const std::string batch =
        "wifi[$b] instance wlan \"net\"\nwifi[$a-1] instance wlan 7\n"
        "wifi[$b].ssid String \"guest\"\nwifi.ssid[$a-1] String \"[$b]\"\nwifi[1] removed\n";
    EXPECT_EQ(ctl("apply -", batch),
              (Outcome{0, "wifi[2] instance wlan \"net\"\nwifi[3] instance wlan 7\n"}));
    EXPECT_EQ(ctl("get 'wifi[2].ssid' 'wifi.ssid[3]'").output,
              "wifi.ssid[2] String \"guest\"\nwifi.ssid[3] String \"[$b]\"\n");
    EXPECT_EQ(ctl("list wifi web"), silent);
    EXPECT_EQ(ctl("set 'wifi[2].ssid' upstairs"), silent);
    EXPECT_EQ(ctl("apply -", "wifi removed \"net\"\nwifi removed 9 # nobody's\n"), silent);
    EXPECT_EQ(ctl("remove 'wifi[3]' 'wifi[9]'").errors,
              "ostrelCtl: wifi[9]: there is no such instance or element; nothing is changed\n");
    EXPECT_EQ(ctl("remove-owner wifi 7"), silent);
    EXPECT_EQ(ctl("count wifi 7"), (Outcome{0, "0\n"}));
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
        {"wifi last 9", "counts"},
        {"[wlan]", "firmware"},
        {"@commit 1", "one transaction"}};
    std::string batch;
    std::vector<std::pair<std::size_t, std::string>> expected;
    for (std::size_t i = 0; i < std::size(lines); ++i) {
        batch += lines[i].first + "\n";
        if (!lines[i].second.empty())
            expected.emplace_back(i + 1, lines[i].second);
    }
    Json problems = json(ctl("apply - --json", batch).errors)["error"]["problems"];
    ASSERT_EQ(problems.size(), expected.size()) << problems;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(problems[i]["line"], expected[i].first);
        Json& key = problems[i]["key"];
        std::string told =
            (key.is_null() ? "" : key.get<std::string>() + ": ") + std::string(problems[i]["reason"]);
        EXPECT_TRUE(contains(told, expected[i].second)) << told;
    }
    Outcome outcome = ctl("check -", batch);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(contains(outcome.errors, "standard input:3: unknown type\n")) << outcome.errors;
    for (const char* arguments :
         {"", "what", "set a", "set a Word 5", "set a Byte 256", "remove wifi", "erase 'v[2]'", "get 'a[0]'",
          "get a --timeout nan", "apply /", "list wifi longer"})
        EXPECT_EQ(ctl(arguments).status, 2) << arguments;
    EXPECT_EQ(Client().number("a"), 1U);
    EXPECT_FALSE(contains(daemon.log(), "Start Writing")) << "nothing was sent";
}

TEST_F(ClientTool, TrialsAndRefusalsStoreNothingAndCallNoPlugin) {
    daemon.calls();
    const std::string stored = readFile("/vemra/var/ostrdb.txt");
    const std::string good = "a Dword 5\nwifi[$x] instance wlan \"web\"\n";
    const std::string bad = good + "\nwifi[$x].speed Byte 5\n";
    EXPECT_EQ(ctl("check -", good), silent);
    EXPECT_EQ(json(ctl("apply --check --json -", good).output),
              Json({{"instances", {{{"structure", "wifi"}, {"label", "x"}, {"key", nullptr}}}}}));
    for (const char* trial : {"set a 5 --check", "erase a --check", "new wlan wifi web --check",
                              "remove 'v[2]' --check", "remove-owner wifi web --check"})
        EXPECT_EQ(ctl(trial), silent) << trial;
    for (const char* command : {"check /tmp/input", "apply /tmp/input"}) {
        Outcome refused = ctl(command, bad);
        EXPECT_EQ(refused.status, 1);
        EXPECT_TRUE(
            contains(refused.errors, "ostrelCtl: /tmp/input:4: wifi.speed[$x]: the new instance has no such"))
            << refused.errors;
    }
    Json error = json(ctl("set text Byte 5 --json").errors)["error"];
    EXPECT_EQ(error["key"], "text");
    EXPECT_EQ(error["status"], "refused");
    EXPECT_EQ(error["reason"], "the key is a String");
    EXPECT_EQ(readFile("/vemra/var/ostrdb.txt"), stored);
    EXPECT_EQ(daemon.calls(), "");
    EXPECT_EQ(json(ctl("--json apply -", good).output)["instances"][0]["key"], 1);
    EXPECT_EQ(json(ctl("--json new wlan wifi web").output), Json({{"key", 2}}));
}

TEST_F(ClientTool, JsonHoldsTheOddCases) {
    EXPECT_EQ(ctl("set text 'a\xff\"'"), silent);
    Outcome read = ctl("get --json 'odd name' text 'v[2]' 'n\xff'");
    EXPECT_EQ(json(read.output), json(R"([{"name":"odd name","index":0,"type":"Byte","value":7},
        {"name":"text","index":0,"type":"String","value":null,"bytes":"61ff22"},
        {"name":"v","index":2,"type":"IP","value":"10.0.0.1"},
        {"name":"n\ufffd","index":0,"type":null,"value":null}])"));
    EXPECT_EQ(json(read.errors)["error"]["status"], "missing");
    EXPECT_EQ(json(ctl("what --json").errors)["error"]["status"], "invalid");
    EXPECT_EQ(ctl("list --json v"), (Outcome{0, "[2]\n"}));
}

// A batch of many frames is still one transaction, and a list has its limit.
TEST_F(ClientTool, LongBatchesAreOneTransaction) {
    std::string batch;
    for (int i = 1; i <= 3000; ++i)
        batch += "v[" + std::to_string(i) + "] IP \"10.1.2.3\"\n";
    EXPECT_EQ(ctl("apply -", batch + "none Byte 1\n").status, 1);
    EXPECT_EQ(ctl("count v"), (Outcome{0, "1\n"}));
    daemon.calls();
    EXPECT_EQ(ctl("apply -", batch), silent);
    EXPECT_EQ(occurrences(daemon.calls(), "writeConf"), 1U);
    Outcome listed = ctl("list v --json");
    EXPECT_EQ(listed.status, 1);
    EXPECT_GT(json(listed.output).size(), 100U);
    EXPECT_TRUE(contains(listed.errors, "incomplete") && contains(listed.errors, "of 3000")) << listed.errors;

    // On a terminal a bar tells that it waits.
    Client holder;
    holder.send(list(29));
    ASSERT_TRUE(holder.ask(list(40)));
    writeFile("/tmp/input", batch);
    EXPECT_NE(
        std::system("script -qec '/vemra/bin/ostrelCtl apply /tmp/input --timeout 1' /tmp/screen >/dev/null"),
        0);
    EXPECT_TRUE(contains(readFile("/tmp/screen"), "] 0 of 3000\r\033[K"));
    EXPECT_EQ(ctl("apply - --timeout 0.2", batch).errors.find('\r'), std::string::npos);
}

TEST_F(ClientTool, TellsBusyFromNotRunning) {
    {
        Client holder;
        holder.send(list(29));
        ASSERT_TRUE(holder.ask(list(40)));
        for (const char* arguments : {"get a", "set a 5", "shutdown"})
            EXPECT_EQ(ctl(arguments + std::string(" --timeout 0.2")).status, 4) << arguments;
    }
    EXPECT_EQ(ctl("get a"), (Outcome{0, "a Dword 1\n"}));
    daemon.script("p", "writeConf sleep 600\n");
    Outcome late = ctl("set a 5 --timeout 0.3 --json");
    EXPECT_EQ(late.status, 4);
    EXPECT_TRUE(contains(late.errors, "may still be made")) << late.errors;
    EXPECT_EQ(ctl("get a"), (Outcome{0, "a Dword 5\n"}));

    Client other;
    EXPECT_EQ(other.number("a"), 5U);
    EXPECT_EQ(ctl("shutdown"), silent);
    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_TRUE(other.closed());
    Outcome stale = ctl("get a --json");
    EXPECT_EQ(stale.status, 3);
    EXPECT_EQ(json(stale.errors)["error"]["status"], "staleSocket");
    unlink("/tmp/ostrel.sock");
    EXPECT_EQ(json(ctl("get a --json").errors)["error"]["status"], "notRunning");
    EXPECT_EQ(ctl("set a 5").status, 3);
}

}  // namespace
