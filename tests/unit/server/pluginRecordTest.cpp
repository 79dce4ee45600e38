#include "server/pluginRecord.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Patterns, OnlyATrailingStarIsSpecial) {
    struct Case {
        std::string pattern;
        const char* key;
        bool matches;
    } cases[] = {
        {"*", "net", true},    {"*", "", true},       {"net*", "net", true}, {"net*", "net.ip", true},
        {"net*", "ne", false}, {"net", "net", true},  {"net", "Net", false}, {"net", "net.ip", false},
        {"a*b", "a*b", true},  {"a*b", "a*c", false}, {"", "", true},        {"", "a", false},
        {"a**", "a*b", true},  {"a**", "ab", false},
    };
    for (Case& test : cases) {
        char* list[] = {test.pattern.data()};
        EXPECT_EQ(matchNameInList(test.key, 1, list), test.matches) << test.pattern << ' ' << test.key;
    }
    EXPECT_FALSE(matchNameInList("a", 0, nullptr));
}

}  // namespace
