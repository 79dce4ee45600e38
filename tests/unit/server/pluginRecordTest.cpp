#include "server/pluginRecord.h"

#include <stdexcept>

#include "unit/capture.h"

namespace {

bool matches(const char* pattern, const char* key) {
    std::string copy(pattern);
    char* list[] = {copy.data()};
    return matchNameInList(key, 1, list);
}

TEST(Patterns, OnlyATrailingStarIsSpecial) {
    EXPECT_TRUE(matches("*", "net") && matches("*", ""));
    EXPECT_TRUE(matches("net*", "net") && matches("net*", "net.ip") && !matches("net*", "ne"));
    EXPECT_TRUE(matches("net", "net") && !matches("net", "net.ip") && !matches("net", "Net"));
    EXPECT_TRUE(matches("a*b", "a*b") && !matches("a*b", "axb"));
    EXPECT_TRUE(matches("", "") && !matches("", "a"));
    EXPECT_TRUE(matches("a**", "a*b") && !matches("a**", "ab"));
    EXPECT_FALSE(matchNameInList("a", 0, nullptr));
}

TEST(PluginRecord, ShortNameIsThePathWithoutItsFolder) {
    EXPECT_STREQ(OstrelClientPlugin("/a/b/x.ostr").shortFileName, "x.ostr");
    EXPECT_STREQ(OstrelClientPlugin("x.ostr").shortFileName, "x.ostr");
    EXPECT_STREQ(OstrelClientPlugin("/a/b/").shortFileName, "/a/b/");
}

int throws() { throw std::runtime_error("broken"); }
int throwsNumber(int* reboot) {
    *reboot = 1;
    throw 5;
}
int two(int* reboot) {
    *reboot = 2;
    return 2;
}
int rebootAndFail(int* reboot) {
    *reboot = 1;
    return 0;
}

TEST(PluginRecord, EntriesAreFencedAndOnlyOneIsSuccess) {
    OstrelIoFuncs_t table{};
    table.die = throws;
    table.restart = throwsNumber;
    OstrelClientPlugin plugin("p.ostr");
    plugin.setIo(&table);
    bool reboot = false;
    std::string log = outputOf([&] {
        EXPECT_TRUE(plugin.writeConf() && plugin.trigger("k")) << "absent entries succeed";
        EXPECT_FALSE(plugin.restart(&reboot));
        EXPECT_FALSE(plugin.closeIo());
    });
    EXPECT_TRUE(reboot);
    EXPECT_TRUE(contains(log, "Plugin[p.ostr].restart() threw an exception: not a std::exception\n")) << log;
    EXPECT_TRUE(contains(log,
                         "Plugin[p.ostr].die() threw an exception: broken\n<<< Plugin[p.ostr].die()\n"
                         "Suicide failed for plugin\n"))
        << log;
    EXPECT_FALSE(contains(log, "writeConf") || contains(log, "trigger"));
    table.restart = two;
    EXPECT_FALSE(plugin.restart(&reboot) || reboot);
    table.restart = rebootAndFail;
    EXPECT_FALSE(plugin.restart(&reboot));
    EXPECT_TRUE(reboot);
    table.die = nullptr;
    EXPECT_EQ(outputOf([&] { plugin.closeIo(); }),
              ">>> Plugin[p.ostr].die()\n<<< Plugin[p.ostr].die() not done\n");
}

TEST(PluginRecord, WithoutATableTheDaemonStops) {
    OstrelClientPlugin plugin("p.ostr");
    bool reboot = false;
    EXPECT_EXIT(plugin.writeConf(), testing::ExitedWithCode(255), "");
    EXPECT_EXIT(plugin.restart(&reboot), testing::ExitedWithCode(255), "");
}

}  // namespace
