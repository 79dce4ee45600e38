// ostrelCtl against the real daemon: what it prints and its exit status.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>

#include "client.h"
#include "daemon.h"

namespace {

struct Outcome {
    int status;
    std::string output;

    bool operator==(const Outcome&) const = default;
};

// Standard output and standard error together.
Outcome ctl(const std::string& arguments, const std::string& input = "") {
    writeFile("/tmp/input", input);
    int status = std::system(("/vemra/bin/ostrelCtl " + arguments + " </tmp/input >/tmp/ctl 2>&1").c_str());
    return {WEXITSTATUS(status), readFile("/tmp/ctl")};
}

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
    EXPECT_EQ(ctl("get a text 'v[2]' 'odd name'"), (Outcome{0, lines}));
    EXPECT_EQ(ctl("set text String 'two\nlines \"quoted\" #'"), (Outcome{0, ""}));
    Outcome changed = ctl("get text");
    EXPECT_EQ(changed, (Outcome{0, "text String \"two\\nlines \\\"quoted\\\" #\"\n"}));
    EXPECT_EQ(ctl("set text String x").status, 0);
    EXPECT_EQ(ctl("apply -", "# back again\n\nset " + changed.output + "set v[3] IP \"::1\"\nerase a\n"),
              (Outcome{0, ""}));
    EXPECT_EQ(ctl("get text"), changed);
    EXPECT_EQ(ctl("count v"), (Outcome{0, "2\n"}));
    EXPECT_EQ(ctl("get text a none").status, 1);
    EXPECT_TRUE(contains(readFile("/tmp/ctl"), " a none"));
}

TEST_F(ClientTool, InstancesAreMadeListedAndRemoved) {
    EXPECT_EQ(ctl("new wlan wifi web"), (Outcome{0, "1\n"}));
    EXPECT_EQ(ctl("apply -", "new wlan wifi \"web\"\nset wifi.ssid[1] String \"guest\"\n"),
              (Outcome{0, "2\n"}));
    EXPECT_EQ(ctl("list wifi web"), (Outcome{0, "1\n2\n"}));
    EXPECT_EQ(ctl("get 'wifi.ssid[1]'"), (Outcome{0, "wifi.ssid[1] String \"guest\"\n"}));
    EXPECT_EQ(ctl("remove 'wifi[1]'"), (Outcome{0, ""}));
    EXPECT_EQ(ctl("count wifi web"), (Outcome{0, "1\n"}));
    EXPECT_EQ(ctl("remove wifi 1").status, 1);
}

TEST_F(ClientTool, RefusalsChangeNothingAndNameTheLine) {
    Outcome refused = ctl("apply -", "set a Dword 5\n\nset text Byte 5\nset a Dword 6\n");
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(contains(refused.output, "line 3: text")) << refused.output;
    EXPECT_EQ(ctl("set none Dword 5").status, 1);
    for (const std::string& batch : {std::string("set a Dword\n"), std::string("set a Dword 4294967296\n"),
                                     std::string("set a IP \"10.0.0\"\n"), std::string("what\n"),
                                     "set " + std::string(128, 'n') + " Dword 1\n",
                                     "set text String \"" + std::string(4096, 'x') + "\"\n"})
        EXPECT_EQ(ctl("apply -", "set a Dword 5\n" + batch).status, 2) << batch;
    EXPECT_EQ(ctl("set a Word 5").status, 2);
    EXPECT_EQ(ctl("frobnicate").status, 2);
    EXPECT_EQ(Client().number("a"), 1U);
    EXPECT_FALSE(contains(daemon.log(), "[ostrServer] Got commit message")) << "nothing was committed";
}

// A batch of many frames is still one transaction.
TEST_F(ClientTool, LongBatchesAreOneTransaction) {
    std::string batch;
    for (int i = 1; i <= 3000; ++i)
        batch += "set v[" + std::to_string(i) + "] IP \"10.1.2.3\"\n";
    EXPECT_EQ(ctl("apply -", batch + "set none Byte 1\n").status, 1);
    EXPECT_EQ(ctl("count v"), (Outcome{0, "1\n"}));
    EXPECT_EQ(ctl("apply -", batch).status, 0);
    EXPECT_EQ(ctl("count v"), (Outcome{0, "3000\n"}));
}

TEST_F(ClientTool, ShutdownThenNotRunning) {
    Client other;
    EXPECT_EQ(other.number("a"), 1U);
    EXPECT_EQ(ctl("shutdown"), (Outcome{0, ""}));
    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_TRUE(other.closed());
    EXPECT_EQ(ctl("get a").status, 3);
}

}  // namespace
