#include "db/nameIndex.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "db/nameHash.h"

namespace {

struct Keyed {
    uint32_t operator()(std::string_view name) const { return store::hashOfName(name); }
};
struct Forced {  // all at one place, in front of the table's end
    uint32_t operator()(std::string_view) const { return 0xFFFFFFFF; }
};
struct Crowded {  // chains that run into each other, and over the end
    uint32_t operator()(std::string_view name) const { return 0xFFFFFFF0 + store::hashOfName(name) % 32; }
};

template <class Hash>
class NameIndex : public testing::Test {};
using Hashes = testing::Types<Keyed, Forced, Crowded>;
TYPED_TEST_SUITE(NameIndex, Hashes);

// Over several growths, and while the old table is still being moved.
TYPED_TEST(NameIndex, FindsWhatIsThereWhereItWasMade) {
    store::NameIndex<int, TypeParam> index;
    std::map<std::string, std::pair<int, const void*>> there;
    std::minstd_rand random(1);
    for (int step = 0; step < 6000; ++step) {
        // Grows in waves, so that erasures meet every state.
        const std::string name = std::to_string(random() % (step % 2000 < 1500 ? 800 : 100));
        if (const auto known = there.find(name); known == there.end()) {
            EXPECT_EQ(index.find(name), nullptr);
            auto& node = index.make(name);
            node.second = step;
            there[name] = {step, &node};
        } else if (step % 3 == 0) {
            index.erase(*index.find(name));
            there.erase(known);
        } else {
            ASSERT_EQ(&index.make(name), known->second.second);
        }
        ASSERT_EQ(index.size(), there.size());
        if (step % 50 != 0)
            continue;
        for (const auto& [each, expected] : there) {
            const auto* node = index.find(each);
            ASSERT_TRUE(node == expected.second && node->second == expected.first) << each << ' ' << step;
        }
    }
    size_t visited = 0;
    index.forEach([&](const auto& node) { visited += size_t{there.contains(node.first)}; });
    EXPECT_EQ(visited, there.size());
    EXPECT_EQ(index.find(""), nullptr);
}

}  // namespace
