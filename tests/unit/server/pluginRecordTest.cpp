#include "server/pluginRecord.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "server/changedNames.h"

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

// A broadcast finds with all changes at once what one look at each would.
TEST(Patterns, FindTheSameAmongManyNames) {
    std::vector<std::unique_ptr<OstrelValue>> owned;
    std::vector<OstrelValue*> changes;
    for (const char* name :
         {"net.ip", "net", "", "b", "net.ip", "ne", "net.\xFF", "net*", "neu", "a*b", "net.i"}) {
        owned.push_back(std::make_unique<OstrelValue>(name, nullptr, 0, ostrelTypeNone, 0, 0));
        changes.push_back(owned.back().get());
    }
    std::string texts[] = {"net", "net.*", "none", "*", "", "a*b", "net**", "neu*", "zz"};
    const ChangedNames names(changes);
    for (size_t first = 0; first < std::size(texts); ++first) {
        char* patterns[] = {nullptr, texts[first].data(), texts[(first * 4 + 5) % std::size(texts)].data()};
        for (const unsigned int count : {0U, 2U, 3U}) {
            const std::vector<bool> found = names.matches(count, patterns);
            bool isAny = false;
            for (size_t i = 0; i < changes.size(); ++i) {
                const bool isMatch = matchNameInList(changes[i]->name, count, patterns);
                EXPECT_EQ(found[i], isMatch) << changes[i]->name << ' ' << texts[first];
                isAny = isAny || isMatch;
            }
            EXPECT_EQ(names.anyMatches(count, patterns), isAny) << texts[first];
        }
    }
}

}  // namespace
